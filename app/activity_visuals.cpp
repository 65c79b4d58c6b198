#include "app/activity_visuals.h"

#include <algorithm>
#include <cmath>

namespace tidewatch {

namespace {

using std::chrono::milliseconds;

ActivityColor rgb(int red, int green, int blue) { return {red / 255.0, green / 255.0, blue / 255.0, 1.0}; }

// The wave's cycle and how far behind the cell nearest the notch each step away from it runs.
constexpr milliseconds wavePeriod{1400};
constexpr double columnLag = 0.14;  // seconds
constexpr double rowLag = 0.05;     // seconds

}  // namespace

AgentActivityPalette AgentActivityPalette::codex() { return {{rgb(82, 185, 151), rgb(126, 226, 168), rgb(137, 218, 211)}}; }

AgentActivityPalette AgentActivityPalette::claude() {
  return {{rgb(207, 105, 48), rgb(255, 178, 125), rgb(255, 202, 151)}};
}

ActivityColor AgentActivityPalette::gradientAt(double t) const {
  const double at = std::clamp(t, 0.0, 1.0) * 2;
  const size_t index = std::min<size_t>(static_cast<size_t>(at), 1);
  const double local = at - static_cast<double>(index);
  const auto mix = [local](double a, double b) { return a + (b - a) * local; };
  const auto& a = colors[index];
  const auto& b = colors[index + 1];
  return {mix(a.red, b.red), mix(a.green, b.green), mix(a.blue, b.blue), 1.0};
}

bool keepsCell(AgentActivityMatrixPattern pattern, int cell) {
  if (pattern == AgentActivityMatrixPattern::ring) return cell != 4;
  return cell % 2 == 0;
}

GradientActivityMatrix::GradientActivityMatrix(AgentActivityPalette colors, bool mirrored,
                                               AgentActivityMatrixPattern nonColorPattern, MotionClock now)
    : colors_(colors), mirrored_(mirrored), nonColorPattern_(nonColorPattern), now_(std::move(now)) {
  setResting();
}

int GradientActivityMatrix::column(int cell) const {
  const int c = cell % 3;
  return mirrored_ ? 2 - c : c;
}

double GradientActivityMatrix::restingOpacity(int column, int row) const {
  double base = increaseContrast_ ? 0.76 : 0.62;
  if (updated_ && isWorking_) base = increaseContrast_ ? 0.9 : 0.82;
  return std::min(1.0, base + 0.035 * (column + row));
}

LayerRect GradientActivityMatrix::cellFrame(int cell) {
  constexpr double cellSide = 2.0;
  constexpr double pitch = 3.0;
  const double margin = std::max(0.0, side / 2 - (cellSide + 2 * pitch) / 2);
  return {margin + (cell % 3) * pitch, margin + (cell / 3) * pitch, cellSide, cellSide};
}

ActivityColor GradientActivityMatrix::cellColor(int cell) const {
  return colors_.gradientAt((column(cell) + cell / 3) / 4.0);
}

void GradientActivityMatrix::update(bool isWorking, bool reduceMotion, bool increaseContrast,
                                    bool differentiateWithoutColor) {
  const bool flagsChanged =
      increaseContrast != increaseContrast_ || differentiateWithoutColor != differentiateWithoutColor_;
  isWorking_ = isWorking;
  reduceMotion_ = reduceMotion;
  increaseContrast_ = increaseContrast;
  differentiateWithoutColor_ = differentiateWithoutColor;
  updated_ = true;
  // New flags change the wave's bounds: start it again rather than keep the old one running.
  if (flagsChanged && isAnimating_) stop();
  if (isWorking && !reduceMotion) {
    if (!isAnimating_) startMotion();
    return;
  }
  stop();
}

void GradientActivityMatrix::stop() {
  for (auto& cell : cells_) cell.remove(motionKey);
  isAnimating_ = false;
  setResting();
}

void GradientActivityMatrix::setResting() {
  for (int cell = 0; cell < 9; ++cell) {
    const bool hidden = differentiateWithoutColor_ && !keepsCell(nonColorPattern_, cell);
    cells_[static_cast<size_t>(cell)].opacity = hidden ? 0.0 : restingOpacity(column(cell), cell / 3);
    cells_[static_cast<size_t>(cell)].scale = 1.0;
  }
}

void GradientActivityMatrix::startMotion() {
  setResting();
  const double low = increaseContrast_ ? 0.42 : 0.2;
  const MotionTime begin = now_();
  const double period = std::chrono::duration<double>(wavePeriod).count();
  for (int cell = 0; cell < 9; ++cell) {
    if (differentiateWithoutColor_ && !keepsCell(nonColorPattern_, cell)) continue;
    // The column nearest the notch leads; the wave runs outwards and a little downwards.
    const double lag = (2 - column(cell)) * columnLag + (cell / 3) * rowLag;
    LayerAnimation opacity;
    opacity.property = LayerProperty::opacity;
    opacity.values = {low, 1.0, low};
    opacity.begin = begin;
    opacity.duration = wavePeriod;
    opacity.curve = TimingCurves::easeInEaseOut;
    opacity.repeats = true;
    opacity.phase = -lag / period;
    LayerAnimation scale = opacity;
    scale.property = LayerProperty::scale;
    scale.values = {0.86, 1.0, 0.86};
    cells_[static_cast<size_t>(cell)].add(motionKey, {opacity, scale});
  }
  isAnimating_ = true;
}

RollingAgentCountLayer::RollingAgentCountLayer(std::shared_ptr<MainExecutor> executor, MotionClock now)
    : executor_(std::move(executor)), now_(std::move(now)) {}

void RollingAgentCountLayer::update(int value, const ActivityColor& color, bool reduceMotion, bool animated) {
  foregroundColor_ = color;
  if (currentValue_ == value) return;
  CountText incoming{std::to_string(value), {}};
  if (!currentValue_ || !animated || !current_) {
    outgoing_.clear();
    current_ = std::move(incoming);
    currentValue_ = value;
    return;
  }
  const uint64_t generation = ++transitionGeneration_;
  // Rising numbers roll upwards: the new one comes from below, the old one leaves over the top.
  const double direction = value > *currentValue_ ? 1.0 : -1.0;
  const MotionTime begin = now_();
  const MotionTime duration = reduceMotion ? milliseconds(140) : milliseconds(200);
  const TimingCurve curve = reduceMotion ? TimingCurves::surface : TimingCurves::roll;
  CountText leaving = std::move(*current_);
  leaving.layer.opacity = 0;
  std::vector<LayerAnimation> out{basicAnimation(LayerProperty::opacity, 1, 0, begin, duration, curve)};
  std::vector<LayerAnimation> in{basicAnimation(LayerProperty::opacity, 0, 1, begin, duration, curve)};
  if (!reduceMotion) {
    out.push_back(basicAnimation(LayerProperty::translationY, 0, -direction * rollDistance, begin, duration, curve));
    in.push_back(basicAnimation(LayerProperty::translationY, direction * rollDistance, 0, begin, duration, curve));
  }
  leaving.layer.add(transitionKey, std::move(out));
  incoming.layer.add(transitionKey, std::move(in));
  outgoing_.push_back(std::move(leaving));
  current_ = std::move(incoming);
  currentValue_ = value;
  std::weak_ptr<bool> alive = alive_;
  executor_->postAfter(duration, [this, alive, generation] {
    // A newer roll took the older layers with it and settles them itself.
    if (!alive.lock() || generation != transitionGeneration_) return;
    outgoing_.clear();
  });
}

void RollingAgentCountLayer::reset() {
  ++transitionGeneration_;
  outgoing_.clear();
  currentValue_.reset();
  if (current_) current_->layer.removeAll();
}

bool RollingAgentCountLayer::isMoving(MotionTime now) {
  bool moving = current_ && current_->layer.isMoving(now);
  for (auto& text : outgoing_) moving = text.layer.isMoving(now) || moving;
  return moving;
}

AgentActivityGroupLayer::AgentActivityGroupLayer(Setup setup)
    : executor_(setup.executor),
      now_(setup.now),
      matrix_(setup.palette, setup.mirrored, setup.pattern, setup.now),
      count_(setup.executor, setup.now) {
  completionColor = setup.palette.colors[1];
  completionLayer_.opacity = 0;
  countOpacity_.opacity = 0;
}

void AgentActivityGroupLayer::setSteadyLayers() {
  matrixLayer_.opacity = 1;
  countOpacity_.opacity = latestCount < 1 ? 0 : 1;
  completionLayer_.opacity = 0;
}

void AgentActivityGroupLayer::updateMatrix() {
  matrix_.update(latestWorking, latestOptions.reduceMotion, latestOptions.increaseContrast,
                 latestOptions.differentiateWithoutColor);
}

void AgentActivityGroupLayer::animateState(MotionLayer& layer, std::pair<double, double> opacity,
                                           std::pair<double, double> scale, MotionTime begin, MotionTime duration) {
  const auto curve = TimingCurves::surface;
  layer.opacity = opacity.second;
  layer.scale = scale.second;
  layer.add(stateKey, {basicAnimation(LayerProperty::opacity, opacity.first, opacity.second, begin, duration, curve),
                       basicAnimation(LayerProperty::scale, scale.first, scale.second, begin, duration, curve)});
}

void AgentActivityGroupLayer::beginCompletion() {
  if (isPresentingCompletion_) return;
  const uint64_t generation = ++completionGeneration_;
  isPresentingCompletion_ = true;
  matrix_.stop();
  const MotionTime begin = now_();
  constexpr milliseconds duration{160};
  animateState(matrixLayer_, {1, 0}, {1, 0.9}, begin, duration);
  animateState(completionLayer_, {0, 1}, {0.9, 1}, begin, duration);
  // With no session left there is no number to read beside the checkmark: it leaves with the matrix.
  if (latestCount < 1 && countOpacity_.opacity > 0) {
    countOpacity_.opacity = 0;
    countOpacity_.add(stateKey, {basicAnimation(LayerProperty::opacity, 1, 0, begin, duration, TimingCurves::surface)});
  }
  std::weak_ptr<bool> alive = alive_;
  executor_->postAfter(milliseconds(720), [this, alive, generation] {
    if (!alive.lock() || generation != completionGeneration_) return;
    endCompletion(generation);
  });
}

void AgentActivityGroupLayer::endCompletion(uint64_t generation) {
  const MotionTime begin = now_();
  constexpr milliseconds duration{180};
  animateState(matrixLayer_, {0, 1}, {0.9, 1}, begin, duration);
  animateState(completionLayer_, {1, 0}, {1, 0.96}, begin, duration);
  std::weak_ptr<bool> alive = alive_;
  executor_->postAfter(duration, [this, alive, generation] {
    if (!alive.lock() || generation != completionGeneration_) return;
    isPresentingCompletion_ = false;
    setSteadyLayers();
    completionLayer_.scale = 1;
    updateMatrix();
    if (onCompletionEnded) onCompletionEnded();
  });
}

void AgentActivityGroupLayer::prepareForHide() {
  // Keep the cells where the wave left them rather than snapping them back.
  const MotionTime now = now_();
  for (auto& cell : matrix_.cells()) {
    const auto shown = cell.presentationAt(now);
    cell.remove(GradientActivityMatrix::motionKey);
    cell.opacity = shown.opacity;
    cell.scale = shown.scaleX;
  }
}

void AgentActivityGroupLayer::reset() {
  ++completionGeneration_;
  isPresentingCompletion_ = false;
  matrixLayer_.removeAll();
  completionLayer_.removeAll();
  countOpacity_.removeAll();
  matrixLayer_.scale = 1;
  completionLayer_.scale = 1;
  matrix_.stop();
  setSteadyLayers();
  count_.reset();
}

bool AgentActivityGroupLayer::isTransitioning(MotionTime now) {
  bool moving = matrixLayer_.isMoving(now);
  moving = completionLayer_.isMoving(now) || moving;
  return count_.isMoving(now) || moving;
}

bool AgentActivityGroupLayer::isMoving(MotionTime now) {
  bool moving = isTransitioning(now);
  for (auto& cell : matrix_.cells()) moving = cell.isMoving(now) || moving;
  return moving;
}

std::array<std::pair<double, double>, 3> AgentActivityGroupLayer::checkmarkPath() {
  return {{{1.2, 4.3}, {3.3, 6.3}, {6.9, 1.9}}};
}

}  // namespace tidewatch
