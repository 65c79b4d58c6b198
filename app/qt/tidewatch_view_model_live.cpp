// The view model's wiring to this machine: the live terminator, the settings store, a probe
// worker shared by every instance.
#include <chrono>

#include "app/qt/tidewatch_view_model.h"
#include "process_core/one_shot.h"
#include "process_core/process_reader.h"
#include "process_core/serial_worker.h"
#include "tidewatch_kit/listener_terminator.h"

namespace tidewatch {
namespace {

SerialWorker& focusProbeWorker() {
  static SerialWorker worker;
  return worker;
}

}  // namespace

TidewatchViewModel::Dependencies TidewatchViewModel::Dependencies::live(std::shared_ptr<MainExecutor> executor) {
  const auto terminator = std::make_shared<ListenerTerminator>(PortEngine(), ProcessSafetyClassifier::Context::current());
  Dependencies d;
  d.executor = std::move(executor);
  d.defaults = DefaultsStore::standard();
  d.context = ProcessSafetyClassifier::Context::current();
  d.kill = [terminator](const KillRequest& request) { return terminator->kill(request); };
  d.forceKill = [terminator](const ForceKillRequest& request) { return terminator->forceKill(request); };
  d.stopPool = [terminator](const StopPoolRequest& request) { return terminator->stopPool(request); };
  d.stopVisible = [terminator](const StopVisibleRequest& request) { return terminator->stopVisible(request); };
  d.stopAgent = [terminator](const StopAgentRequest& request) { return terminator->stopAgent(request); };
  d.stopAgentRequest = [terminator](const std::string& id, AgentKind provider, const AgentProcessIdentity& identity) {
    return terminator->stopAgentRequest(id, provider, identity);
  };
  d.runInBackground = [](std::function<void()> work) { startDetached(work); };
  d.focusProbe = [](std::function<void()> work) { focusProbeWorker().post(std::move(work)); };
  d.focusHostResolver = [](int32_t pid) { return Libproc::processIdentity(pid); };
  // Bringing a window forward is the desktop's (EWMH on X11, given by the application); without
  // it no host is offered for focus rather than one that cannot come forward.
  d.hasRunningApplication = [](int32_t) { return false; };
  d.focusHostActivator = [](int32_t) {};
  d.now = [] { return std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now()); };
  return d;
}

}  // namespace tidewatch
