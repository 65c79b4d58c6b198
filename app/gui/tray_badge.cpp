#include "app/gui/tray_badge.h"

#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>

#include "app/gui/island_window.h"

namespace tidewatch {

namespace {

QColor badgeColor(const AgentActivityPalette& palette) { return toQColor(palette.colors[0]); }

void drawBadge(QPainter& painter, const QRectF& circle, int count, const QColor& fill) {
  painter.setPen(QPen(QColor(0, 0, 0, 150), circle.width() * 0.08));
  painter.setBrush(fill);
  painter.drawEllipse(circle);
  QFont font(QStringLiteral("Inter"));
  font.setBold(true);
  const QString text = count > 9 ? QStringLiteral("9+") : QString::number(count);
  font.setPixelSize(static_cast<int>(circle.height() * (text.size() > 1 ? 0.5 : 0.68)));
  painter.setFont(font);
  painter.setPen(Qt::white);
  painter.drawText(circle, Qt::AlignCenter, text);
}

}  // namespace

QImage badgedTrayImage(const QString& svgPath, const AgentIndicatorCounts& counts, int side) {
  QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  QPainter painter(&image);
  painter.setRenderHint(QPainter::Antialiasing);
  QSvgRenderer(svgPath).render(&painter, QRectF(0, 0, side, side));
  // Large enough to read at a tray's 22 pixels: half the icon's width each when both show.
  const double diameter = side * (counts.codex > 0 && counts.claude > 0 ? 0.5 : 0.56);
  const double top = side - diameter;
  if (counts.codex > 0) drawBadge(painter, {0, top, diameter, diameter}, counts.codex, badgeColor(AgentActivityPalette::codex()));
  if (counts.claude > 0) {
    drawBadge(painter, {side - diameter, top, diameter, diameter}, counts.claude,
              badgeColor(AgentActivityPalette::claude()));
  }
  return image;
}

QIcon badgedTrayIcon(const QString& svgPath, const AgentIndicatorCounts& counts) {
  QIcon icon;
  for (const int side : {16, 22, 24, 32, 48, 64}) icon.addPixmap(QPixmap::fromImage(badgedTrayImage(svgPath, counts, side)));
  return icon;
}

}  // namespace tidewatch
