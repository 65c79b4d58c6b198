#include "app/gui/fonts.h"

#include <QFont>
#include <QFontDatabase>
#include <QGuiApplication>

#include <filesystem>
#include <string>

namespace tidewatch {

void registerApplicationFonts() {
  namespace fs = std::filesystem;
  for (const char* folder : {"/usr/share/fonts/opentype/inter", "/usr/share/fonts/truetype/jetbrains-mono"}) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
      const auto name = entry.path().filename().string();
      if (name.find("Italic") != std::string::npos) continue;
      QFontDatabase::addApplicationFont(QString::fromStdString(entry.path().string()));
    }
  }
  if (QFontDatabase::families().contains(QStringLiteral("Inter"))) {
    QFont font(QStringLiteral("Inter"));
    font.setPixelSize(13);
    QGuiApplication::setFont(font);
  }
}

}  // namespace tidewatch
