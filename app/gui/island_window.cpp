#include "app/gui/island_window.h"

#include <QGuiApplication>
#include <QPainterPath>
#include <QScreen>

#include <algorithm>

#include "app/gui/screen_geometry.h"
#include "app/island_environment.h"

namespace tidewatch {

namespace {

constexpr double wingWidth = NotchIslandEnvironmentResolver::visibleWingWidth;
constexpr double overlap = NotchIslandEnvironmentResolver::notchOverlap;
constexpr double notchWidth = IslandEnvironment::virtualNotchWidth;
constexpr double islandHeight = IslandEnvironment::auxiliaryAreaHeight;
constexpr int transitionFrame = 16;  // milliseconds: fades, rolls and slides at the display's pace
constexpr int breathingFrame = 33;   // the matrix's slow wave needs half that

QPainterPath toPath(const std::vector<NotchIslandWingShape::PathElement>& elements) {
  using Kind = NotchIslandWingShape::PathElement::Kind;
  QPainterPath path;
  for (const auto& element : elements) {
    const auto point = [&](size_t i) { return QPointF(element.points[i].first, element.points[i].second); };
    switch (element.kind) {
      case Kind::moveTo: path.moveTo(point(0)); break;
      case Kind::lineTo: path.lineTo(point(0)); break;
      case Kind::curveTo: path.cubicTo(point(0), point(1), point(2)); break;
      case Kind::close: path.closeSubpath(); break;
    }
  }
  return path;
}

QRectF wingRect(NotchIslandSide side) {
  return side == NotchIslandSide::left ? QRectF(0, 0, wingWidth + overlap, islandHeight)
                                       : QRectF(wingWidth + notchWidth - overlap, 0, wingWidth + overlap, islandHeight);
}

QRectF notchRect() { return {wingWidth, 0, notchWidth, islandHeight}; }

// A layer's scale applies about the middle of its frame, as layers scale.
void scaleAbout(QPainter& painter, const QRectF& frame, double scaleX, double scaleY) {
  const QPointF middle = frame.center();
  painter.translate(middle);
  painter.scale(scaleX, scaleY);
  painter.translate(-middle);
}

void paintBorder(QPainter& painter, const QPainterPath& path) {
  // White at a third, one point wide, inside the outline; flat ends, so pieces meet seamlessly.
  painter.setPen(QPen(QColor::fromRgbF(1, 1, 1, 0.32f), 1.0, Qt::SolidLine, Qt::FlatCap, Qt::RoundJoin));
  painter.setBrush(Qt::NoBrush);
  painter.drawPath(path);
}

void paintContent(QPainter& painter, NotchIslandWing& wing, const QRectF& rect, MotionTime now) {
  const auto& view = wing.contentView();
  const auto& group = view.activityGroup();
  const auto layout = view.layout(rect.width(), rect.height());
  const auto place = [&](const LayerRect& frame) {
    return QRectF(rect.x() + frame.x, rect.y() + frame.y, frame.width, frame.height);
  };

  // The matrix: nine rounded cells along the palette's gradient.
  const QRectF matrix = place(layout.matrix);
  const auto matrixShown = group.matrixLayer().presentationAt(now);
  if (matrixShown.opacity > 0) {
    painter.save();
    scaleAbout(painter, matrix, matrixShown.scaleX, matrixShown.scaleY);
    painter.setPen(Qt::NoPen);
    for (int cell = 0; cell < 9; ++cell) {
      const auto shown = group.matrix().cells()[static_cast<size_t>(cell)].presentationAt(now);
      if (shown.opacity <= 0) continue;
      const auto frame = GradientActivityMatrix::cellFrame(cell);
      const QRectF cellRect(matrix.x() + frame.x, matrix.y() + frame.y, frame.width, frame.height);
      painter.save();
      scaleAbout(painter, cellRect, shown.scaleX, shown.scaleY);
      painter.setBrush(toQColor(group.matrix().cellColor(cell), std::min(1.0, shown.opacity * matrixShown.opacity)));
      painter.drawRoundedRect(cellRect, 0.6, 0.6);
      painter.restore();
    }
    painter.restore();
  }

  // The checkmark, in the matrix's place.
  const auto checkShown = group.completionLayer().presentationAt(now);
  if (checkShown.opacity > 0) {
    const QRectF check = place(layout.checkmark);
    painter.save();
    scaleAbout(painter, check, checkShown.scaleX, checkShown.scaleY);
    QPen pen(toQColor(group.completionColor, checkShown.opacity), group.completionLineWidth);
    pen.setCapStyle(Qt::RoundCap);
    pen.setJoinStyle(Qt::RoundJoin);
    painter.setPen(pen);
    QPolygonF line;
    for (const auto& [x, y] : AgentActivityGroupLayer::checkmarkPath()) line << QPointF(check.x() + x, check.y() + y);
    painter.drawPolyline(line);
    painter.restore();
  }

  // The count: the current number and any still rolling out, towards the matrix.
  const double countOpacity = group.countOpacityLayer().presentationAt(now).opacity;
  const auto& count = group.countLayer();
  if (countOpacity > 0 && count.currentLayer()) {
    QFont font(QStringLiteral("JetBrains Mono"));
    font.setPixelSize(static_cast<int>(AgentActivityGroupLayer::countFontSize));
    font.setWeight(QFont::DemiBold);
    painter.setFont(font);
    const QRectF box = place(layout.count);
    const int alignment =
        Qt::AlignVCenter | (view.side() == NotchIslandSide::left ? Qt::AlignLeft : Qt::AlignRight);
    const auto draw = [&](const CountText& text) {
      const auto shown = text.layer.presentationAt(now);
      if (shown.opacity <= 0) return;
      painter.setPen(toQColor(count.foregroundColor(), shown.opacity * countOpacity));
      painter.drawText(box.translated(0, shown.translationY), alignment, QString::fromStdString(text.text));
    };
    for (const auto& text : count.outgoingLayers()) draw(text);
    draw(*count.currentLayer());
  }
}

// The wing's alpha and motion; false when nothing of it shows.
bool beginWing(QPainter& painter, NotchIslandWing& wing, MotionTime now) {
  if (!wing.isVisible()) return false;
  const double alpha = wing.panelLayer().presentationAt(now).opacity;
  if (alpha <= 0) return false;
  const auto surface = wing.surfaceLayer().presentationAt(now);
  painter.save();
  painter.setOpacity(alpha);
  painter.translate(surface.translationX, 0);
  scaleAbout(painter, wingRect(wing.side()), surface.scaleX, 1.0);
  return true;
}

void paintWing(QPainter& painter, NotchIslandWing& wing, MotionTime now) {
  if (!beginWing(painter, wing, now)) return;
  const QRectF rect = wingRect(wing.side());
  const LayerRect bounds{rect.x(), rect.y(), rect.width(), rect.height()};
  const QPainterPath shape =
      toPath(NotchIslandWingShape::path(bounds, wing.side(), NotchIslandWingShape::outerRadius(bounds)));
  painter.setClipPath(shape);
  painter.fillPath(shape, Qt::black);
  paintContent(painter, wing, rect, now);
  painter.restore();
}

// The contrast border of a wing, outside the notch, which draws its own part.
void paintWingBorder(QPainter& painter, NotchIslandWing& wing, MotionTime now) {
  if (!wing.contentView().increaseContrast() || !beginWing(painter, wing, now)) return;
  const QRectF rect = wingRect(wing.side());
  QRegion outside(wingRect(wing.side()).toAlignedRect());
  painter.setClipRegion(outside - QRegion(notchRect().toRect()));
  const double radius = NotchIslandWingShape::outerRadius({rect.x(), rect.y(), rect.width(), rect.height()});
  const LayerRect inset{rect.x() + 0.5, rect.y() + 0.5, rect.width() - 1, rect.height() - 1};
  paintBorder(painter, toPath(NotchIslandWingShape::outerBorderPath(inset, wing.side(), radius - 0.5)));
  painter.restore();
}

// The notch's gap, black, over the wings' inner ends: joined square to a wing that shows and
// rounded where none does, so the whole reads as one pill.
void paintNotch(QPainter& painter, NotchIslandWing& left, NotchIslandWing& right, MotionTime now) {
  const auto alphaOf = [now](NotchIslandWing& wing) {
    return wing.isVisible() ? wing.panelLayer().presentationAt(now).opacity : 0.0;
  };
  const double alpha = std::max(alphaOf(left), alphaOf(right));
  if (alpha <= 0) return;
  const QRectF rect = notchRect();
  const LayerRect bounds{rect.x(), rect.y(), rect.width(), rect.height()};
  const double radius = NotchIslandWingShape::outerRadius(bounds);
  const bool joinsLeft = left.isVisible();
  const bool joinsRight = right.isVisible();
  QPainterPath shape;
  QPainterPath border;
  const LayerRect inset{rect.x() + 0.5, rect.y() + 0.5, rect.width() - 1, rect.height() - 1};
  if (joinsLeft && joinsRight) {
    shape.addRect(rect);
    border.moveTo(rect.left(), rect.top() + 0.5);
    border.lineTo(rect.right(), rect.top() + 0.5);
    border.moveTo(rect.left(), rect.bottom() - 0.5);
    border.lineTo(rect.right(), rect.bottom() - 0.5);
  } else {
    // Joined to the left wing, the notch ends the pill on the right like a right wing, and the reverse.
    const auto side = joinsLeft ? NotchIslandSide::right : NotchIslandSide::left;
    shape = toPath(NotchIslandWingShape::path(bounds, side, radius));
    // Its open end meets the wing's border exactly at the notch's edge.
    border = toPath(NotchIslandWingShape::outerBorderPath(
        {side == NotchIslandSide::left ? inset.x : rect.x(), inset.y, inset.width + 0.5, inset.height}, side,
        radius - 0.5));
  }
  painter.save();
  painter.setOpacity(alpha);
  painter.fillPath(shape, Qt::black);
  const bool contrast = (joinsLeft && left.contentView().increaseContrast()) ||
                        (joinsRight && right.contentView().increaseContrast());
  if (contrast) paintBorder(painter, border);
  painter.restore();
}


}  // namespace

QColor toQColor(const ActivityColor& color, double opacity) {
  return QColor::fromRgbF(static_cast<float>(color.red), static_cast<float>(color.green),
                          static_cast<float>(color.blue), static_cast<float>(color.alpha * opacity));
}

void paintIsland(QPainter& painter, NotchIslandWing& left, NotchIslandWing& right, MotionTime now) {
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setRenderHint(QPainter::TextAntialiasing);
  paintWing(painter, left, now);
  paintWing(painter, right, now);
  paintNotch(painter, left, right, now);
  paintWingBorder(painter, left, now);
  paintWingBorder(painter, right, now);
}

QSize IslandWindow::islandSize() {
  return {static_cast<int>(2 * wingWidth + notchWidth), static_cast<int>(islandHeight)};
}

IslandWindow::IslandWindow(std::shared_ptr<MainExecutor> executor, MotionClock clock) : clock_(std::move(clock)) {
  // A tooltip-type window is left alone by the window manager: no frame, no focus, no taskbar
  // or switcher entry, the same on every workspace. Input passes through to what is below.
  setFlags(Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus |
           Qt::WindowTransparentForInput | Qt::NoDropShadowWindowHint);
  QSurfaceFormat format;
  format.setAlphaBufferSize(8);
  setFormat(format);
  setTitle(QString::fromUtf8(title));
  resize(islandSize());
  frame_.setSingleShot(true);
  connect(&frame_, &QTimer::timeout, this, [this] { update(); });
  left_ = std::make_unique<NotchIslandWing>(
      NotchIslandWing::Setup{NotchIslandSide::left, executor, clock_, panelFor(NotchIslandSide::left)});
  right_ = std::make_unique<NotchIslandWing>(
      NotchIslandWing::Setup{NotchIslandSide::right, executor, clock_, panelFor(NotchIslandSide::right)});
}

IslandWindow::~IslandWindow() = default;

NotchIslandPanelOperations IslandWindow::panelFor(NotchIslandSide side) {
  NotchIslandPanelOperations panel;
  panel.setFrame = [this, side](const ScreenRect& frame) { place(side, frame); };
  panel.orderFront = [this] { wingOrderedFront(); };
  panel.orderOut = [this] { wingOrderedOut(); };
  panel.setNeedsDisplay = [this] { scheduleFrame(0); };
  return panel;
}

void IslandWindow::place(NotchIslandSide side, const ScreenRect& frame) {
  // Either wing fixes the whole island: the other stands across the notch from it.
  const auto topLeft = ScreenGeometry::toTopLeft(frame);
  const double x = side == NotchIslandSide::left ? topLeft.x : topLeft.x + topLeft.width - islandSize().width();
  const QRect geometry(static_cast<int>(std::lround(x)), static_cast<int>(std::lround(topLeft.y)),
                       islandSize().width(), islandSize().height());
  if (geometry != this->geometry()) setGeometry(geometry);
}

void IslandWindow::wingOrderedFront() {
  updateMask();
  if (!isVisible()) show();
  raise();
  scheduleFrame(0);
}

void IslandWindow::wingOrderedOut() {
  if (!left_->isVisible() && !right_->isVisible()) {
    frame_.stop();
    hide();
    return;
  }
  updateMask();
  scheduleFrame(0);
}

void IslandWindow::updateMask() {
  // Without a compositor the clear parts would show black: only the shown parts are the window.
  QRegion shape(notchRect().toRect());
  if (left_->isVisible()) shape += wingRect(NotchIslandSide::left).toRect();
  if (right_->isVisible()) shape += wingRect(NotchIslandSide::right).toRect();
  setMask(shape);
}

void IslandWindow::keepAbove() {
  if (isVisible()) raise();
}

void IslandWindow::scheduleFrame(int milliseconds) {
  if (!isVisible()) return;
  if (frame_.isActive() && frame_.remainingTime() <= milliseconds) return;
  frame_.start(milliseconds);
}

void IslandWindow::paintEvent(QPaintEvent*) {
  const MotionTime now = clock_();
  QPainter painter(this);
  painter.setCompositionMode(QPainter::CompositionMode_Source);
  painter.fillRect(QRect(QPoint(0, 0), size()), Qt::transparent);
  painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
  paintIsland(painter, *left_, *right_, now);
  const auto moving = [now](NotchIslandWing& wing, bool transitions) {
    if (!wing.isVisible()) return false;
    return transitions ? wing.isTransitioning(now) : wing.isMoving(now);
  };
  if (moving(*left_, true) || moving(*right_, true)) {
    scheduleFrame(transitionFrame);
  } else if (moving(*left_, false) || moving(*right_, false)) {
    scheduleFrame(breathingFrame);
  }
}

QStringList IslandWindow::accessibleLabels() const {
  QStringList labels;
  for (const auto* wing : {left_.get(), right_.get()}) {
    if (wing->isVisible()) labels << QString::fromStdString(wing->contentView().accessibilityLabel());
  }
  return labels;
}

}  // namespace tidewatch
