#include "process_core/path_utils.h"

#include <vector>

namespace tidewatch {

std::string standardizePath(std::string_view path) {
  if (path.empty()) return {};
  const bool absolute = path.front() == '/';
  std::vector<std::string_view> pieces;
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string_view::npos) end = path.size();
    std::string_view piece = path.substr(start, end - start);
    if (piece.empty() || piece == ".") {
      // dropped
    } else if (piece == ".." && absolute) {
      if (!pieces.empty()) pieces.pop_back();
    } else {
      pieces.push_back(piece);
    }
    start = end + 1;
  }
  std::string result = absolute ? "/" : "";
  for (size_t i = 0; i < pieces.size(); ++i) {
    if (i > 0) result += '/';
    result += pieces[i];
  }
  return result;
}

std::string deletingLastPathComponent(std::string_view path) {
  size_t end = path.size();
  while (end > 1 && path[end - 1] == '/') --end;
  const size_t slash = path.rfind('/', end == 0 ? 0 : end - 1);
  if (slash == std::string_view::npos) return {};
  if (slash == 0) return "/";
  size_t cut = slash;
  while (cut > 1 && path[cut - 1] == '/') --cut;
  return std::string(path.substr(0, cut));
}

std::string appendingPathComponent(std::string_view path, std::string_view component) {
  std::string result(path);
  while (!component.empty() && component.front() == '/') component.remove_prefix(1);
  if (result.empty()) return std::string(component);
  if (result.back() != '/') result += '/';
  result += component;
  return result;
}

}  // namespace tidewatch
