#include "coralline_kit/agent_tracking_lifecycle.h"

#include <atomic>
#include <thread>
#include <utility>
#include <vector>

#include "process_core/one_shot.h"

namespace tidewatch {
namespace {

// The worker that drains one session.
struct Consumer {
  std::jthread thread;
  std::shared_ptr<std::atomic<bool>> done = std::make_shared<std::atomic<bool>>(false);
};

}  // namespace

// Main-thread state; the worker reaches it only through work posted to the main thread, and
// holds it weakly there.
struct AgentTrackingLifecycle::Core {
  MainExecutor& executor;
  MakeSession makeSession;
  Deliver deliver;
  std::shared_ptr<AgentTrackingSession> currentSession;
  std::optional<Consumer> consumeTask;
  // Stopped workers whose pull is still ending; joined once done, and at the latest on destruction.
  std::vector<Consumer> retired;

  void retire() {
    if (!consumeTask) return;
    consumeTask->thread.request_stop();
    retired.push_back(std::move(*consumeTask));
    consumeTask.reset();
    std::erase_if(retired, [](const Consumer& consumer) { return consumer.done->load(); });
  }
};

AgentTrackingLifecycle::AgentTrackingLifecycle(MainExecutor& mainExecutor, MakeSession makeSession, Deliver deliver)
    : core_(std::make_shared<Core>(Core{mainExecutor, std::move(makeSession), std::move(deliver), nullptr, {}, {}})) {}

AgentTrackingLifecycle::AgentTrackingLifecycle(MainExecutor& mainExecutor, std::function<BatteryMode()> batteryMode,
                                               Deliver deliver)
    : AgentTrackingLifecycle(
          mainExecutor,
          [batteryMode = std::move(batteryMode)] { return std::make_shared<AgentTrackingSession>(batteryMode); },
          std::move(deliver)) {}

AgentTrackingLifecycle::~AgentTrackingLifecycle() {
  // Posted work finds the core gone and delivers nothing; the workers' pulls end on their stop.
  std::vector<Consumer> workers = std::move(core_->retired);
  if (core_->consumeTask) workers.push_back(std::move(*core_->consumeTask));
  core_.reset();
  for (auto& worker : workers) worker.thread.request_stop();
}

void AgentTrackingLifecycle::synchronize(bool suspended, bool enabled) {
  if (!enabled || suspended) {
    stop();
    return;
  }
  if (core_->currentSession) return;
  auto session = core_->makeSession();
  core_->currentSession = session;

  Consumer consumer;
  consumer.thread = std::jthread([weak = std::weak_ptr<Core>(core_), session, &executor = core_->executor,
                                  done = consumer.done](std::stop_token stop) {
    auto iterator = session->makeAsyncIterator();
    while (auto update = iterator.next(stop)) {
      // The next pull waits until the main thread has taken this update, or dropped it.
      auto taken = std::make_shared<OneShot<bool>>();
      executor.post([weak, session, stop, update = std::move(*update), taken] {
        auto core = weak.lock();
        if (stop.stop_requested() || !core || core->currentSession != session) {
          taken->resume(false);
          return;
        }
        core->deliver({AgentTrackingLifecycleEvent::Kind::update, update});
        taken->resume(true);
      });
      const auto goOn = taken->value(stop);
      if (!goOn || !*goOn) {
        done->store(true);
        return;  // whoever stopped or replaced the session has delivered `stopped`
      }
    }
    // A stream that ended by itself ends like a stop; a stale one changes nothing.
    executor.post([weak, session] {
      auto core = weak.lock();
      if (!core || core->currentSession != session) return;
      core->currentSession.reset();
      core->retire();
      core->deliver({AgentTrackingLifecycleEvent::Kind::stopped, std::nullopt});
    });
    done->store(true);
  });
  core_->consumeTask = std::move(consumer);
  core_->deliver({AgentTrackingLifecycleEvent::Kind::started, std::nullopt});
}

void AgentTrackingLifecycle::stop() {
  if (!core_->currentSession && !core_->consumeTask) return;
  core_->currentSession.reset();
  core_->retire();
  core_->deliver({AgentTrackingLifecycleEvent::Kind::stopped, std::nullopt});
}

}  // namespace tidewatch
