// What one island wing draws: a 3-by-3 matrix that breathes while its agent works, a count that
// rolls when it changes, and a checkmark that plays once when a session ends. These are layers
// in the sense of `MotionLayer`: resting values plus keyed animations, evaluated at paint time;
// timed follow-ups (the checkmark's hold, a roll's settling) run on the main executor.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/layer_motion.h"
#include "app/notch_island.h"
#include "process_core/main_executor.h"

namespace tidewatch {

// sRGB, 0 to 1.
struct ActivityColor {
  double red = 0;
  double green = 0;
  double blue = 0;
  double alpha = 1;
  friend bool operator==(const ActivityColor&, const ActivityColor&) = default;
};

struct AgentActivityPalette {
  std::array<ActivityColor, 3> colors;

  static AgentActivityPalette codex();
  static AgentActivityPalette claude();
  // Along the matrix's diagonal, t in [0, 1] from the first color to the third.
  ActivityColor gradientAt(double t) const;
};

// Which cells stay lit when color may not tell the agents apart: Codex a ring, Claude Code a spark.
enum class AgentActivityMatrixPattern { ring, spark };
bool keepsCell(AgentActivityMatrixPattern pattern, int cell);

// Rectangles in a layer's own coordinates, top-left origin, y downwards.
struct LayerRect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  friend bool operator==(const LayerRect&, const LayerRect&) = default;
};

using MotionClock = std::function<MotionTime()>;

class GradientActivityMatrix {
 public:
  static constexpr const char* motionKey = "tidewatch.notchIsland.gradientActivity";
  static constexpr double side = 8.0;

  GradientActivityMatrix(AgentActivityPalette colors, bool mirrored, AgentActivityMatrixPattern nonColorPattern,
                         MotionClock now);

  void update(bool isWorking, bool reduceMotion, bool increaseContrast, bool differentiateWithoutColor);
  // Back at rest, nothing moving.
  void stop();
  // The resting opacity of a cell from its column and row, before the pattern.
  double restingOpacity(int column, int row) const;

  // The cell's frame inside the 8-point matrix.
  static LayerRect cellFrame(int cell);
  ActivityColor cellColor(int cell) const;

  const std::array<MotionLayer, 9>& cells() const { return cells_; }
  std::array<MotionLayer, 9>& cells() { return cells_; }
  bool isAnimating() const { return isAnimating_; }
  bool increaseContrast() const { return increaseContrast_; }
  bool differentiateWithoutColor() const { return differentiateWithoutColor_; }
  bool mirrored() const { return mirrored_; }

 private:
  void startMotion();
  void setResting();
  int column(int cell) const;

  AgentActivityPalette colors_;
  bool mirrored_;
  AgentActivityMatrixPattern nonColorPattern_;
  MotionClock now_;
  std::array<MotionLayer, 9> cells_;
  bool isAnimating_ = false;
  bool isWorking_ = false;
  bool increaseContrast_ = false;
  bool differentiateWithoutColor_ = false;
  bool reduceMotion_ = false;
  bool updated_ = false;
};

// One text of the rolling count.
struct CountText {
  std::string text;
  MotionLayer layer;
};

class RollingAgentCountLayer {
 public:
  static constexpr const char* transitionKey = "tidewatch.agentActivity.countTransition";
  // How far a number travels as it rolls in or out.
  static constexpr double rollDistance = 9.0;

  RollingAgentCountLayer(std::shared_ptr<MainExecutor> executor, MotionClock now);

  void update(int value, const ActivityColor& color, bool reduceMotion, bool animated);
  void reset();

  const std::optional<CountText>& currentLayer() const { return current_; }
  const std::vector<CountText>& outgoingLayers() const { return outgoing_; }
  std::optional<int> currentValue() const { return currentValue_; }
  const ActivityColor& foregroundColor() const { return foregroundColor_; }
  bool isMoving(MotionTime now);

 private:
  std::shared_ptr<MainExecutor> executor_;
  MotionClock now_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  std::optional<CountText> current_;
  std::vector<CountText> outgoing_;
  std::optional<int> currentValue_;
  uint64_t transitionGeneration_ = 0;
  ActivityColor foregroundColor_{1, 1, 1, 1};
};

class AgentActivityGroupLayer {
 public:
  static constexpr const char* stateKey = "tidewatch.agentActivity.state";
  static constexpr double countFontSize = 12.0;

  struct Setup {
    std::shared_ptr<MainExecutor> executor;
    MotionClock now;
    AgentActivityPalette palette;
    bool mirrored = false;
    AgentActivityMatrixPattern pattern = AgentActivityMatrixPattern::ring;
  };
  explicit AgentActivityGroupLayer(Setup setup);

  void beginCompletion();
  void setSteadyLayers();
  // Freezes what is on screen: the matrix stops breathing.
  void prepareForHide();
  void reset();
  // The matrix from the latest working flag and options.
  void updateMatrix();
  bool isMoving(MotionTime now);
  // Moving apart from the matrix's endless breathing: a fade, a roll, the checkmark.
  bool isTransitioning(MotionTime now);

  // The checkmark's three points inside the 8-point square.
  static std::array<std::pair<double, double>, 3> checkmarkPath();

  std::function<void()> onCompletionEnded;
  int latestCount = 0;
  bool latestWorking = false;
  CorallineAccessibilityOptions latestOptions;
  double completionLineWidth = 1.7;
  ActivityColor completionColor;

  GradientActivityMatrix& matrix() { return matrix_; }
  const GradientActivityMatrix& matrix() const { return matrix_; }
  RollingAgentCountLayer& countLayer() { return count_; }
  const RollingAgentCountLayer& countLayer() const { return count_; }
  // The matrix's and the checkmark's fading and scaling as a whole.
  const MotionLayer& matrixLayer() const { return matrixLayer_; }
  const MotionLayer& completionLayer() const { return completionLayer_; }
  const MotionLayer& countOpacityLayer() const { return countOpacity_; }
  bool isPresentingCompletion() const { return isPresentingCompletion_; }

 private:
  void endCompletion(uint64_t generation);
  // A state change's fade and scale, each from the first value to the second, which stays.
  static void animateState(MotionLayer& layer, std::pair<double, double> opacity, std::pair<double, double> scale,
                           MotionTime begin, MotionTime duration);

  std::shared_ptr<MainExecutor> executor_;
  MotionClock now_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  GradientActivityMatrix matrix_;
  RollingAgentCountLayer count_;
  MotionLayer matrixLayer_;
  MotionLayer completionLayer_;
  MotionLayer countOpacity_;
  bool isPresentingCompletion_ = false;
  uint64_t completionGeneration_ = 0;
};

}  // namespace tidewatch
