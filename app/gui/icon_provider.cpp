#include "app/gui/icon_provider.h"

#include <QFile>
#include <QPainter>
#include <QSvgRenderer>
#include <QUrlQuery>

namespace tidewatch {

QImage IconProvider::requestImage(const QString& id, QSize* size, const QSize& requestedSize) {
  const qsizetype mark = id.indexOf(QLatin1Char('?'));
  const QString name = id.left(mark);
  const QString color =
      mark < 0 ? QStringLiteral("#ffffff") : QUrlQuery(id.mid(mark + 1)).queryItemValue(QStringLiteral("color"));
  const QSize target = requestedSize.isValid() && !requestedSize.isEmpty() ? requestedSize : QSize(24, 24);
  if (size) *size = target;

  QImage image(target, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  QFile file(QStringLiteral(":/tidewatch/icons/") + name + QStringLiteral(".svg"));
  if (!file.open(QIODevice::ReadOnly)) {
    qWarning("tidewatch: no icon named %s", qPrintable(name));
    return image;
  }
  QByteArray svg = file.readAll();
  svg.replace("currentColor", color.toUtf8());
  QSvgRenderer renderer(svg);
  QPainter painter(&image);
  renderer.render(&painter);
  return image;
}

}  // namespace tidewatch
