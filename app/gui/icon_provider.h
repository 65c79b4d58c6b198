// Lucide's icons for the panel, recoloured as they load: "image://icon/search?color=#eceef2".
// The SVGs draw with currentColor, so the colour is written into the text before it is rendered;
// that works on every scene graph backend, unlike an effect.
#pragma once

#include <QQuickImageProvider>

namespace tidewatch {

class IconProvider : public QQuickImageProvider {
 public:
  IconProvider() : QQuickImageProvider(QQuickImageProvider::Image) {}
  QImage requestImage(const QString& id, QSize* size, const QSize& requestedSize) override;
};

}  // namespace tidewatch
