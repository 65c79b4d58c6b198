#include "process_core/pretty_json.h"

#include <array>

namespace tidewatch {
namespace {

void appendEscaped(std::string& out, const std::string& text) {
  out.push_back('"');
  for (unsigned char c : text) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '/': out += "\\/"; break;
      case '\b': out += "\\b"; break;
      case '\f': out += "\\f"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          static constexpr std::array<char, 16> hex{'0', '1', '2', '3', '4', '5', '6', '7',
                                                    '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};
          out += "\\u00";
          out.push_back(hex[c >> 4]);
          out.push_back(hex[c & 0xF]);
        } else {
          out.push_back(static_cast<char>(c));
        }
    }
  }
  out.push_back('"');
}

void write(std::string& out, const nlohmann::json& value, size_t indent) {
  using Type = nlohmann::json::value_t;
  switch (value.type()) {
    case Type::object: {
      if (value.empty()) {
        out += "{}";
        return;
      }
      out += "{\n";
      bool first = true;
      for (const auto& [key, member] : value.items()) {
        if (!first) out += ",\n";
        first = false;
        out.append(indent + 2, ' ');
        appendEscaped(out, key);
        out += " : ";
        write(out, member, indent + 2);
      }
      out.push_back('\n');
      out.append(indent, ' ');
      out.push_back('}');
      return;
    }
    case Type::array: {
      if (value.empty()) {
        out += "[]";
        return;
      }
      out += "[\n";
      bool first = true;
      for (const auto& element : value) {
        if (!first) out += ",\n";
        first = false;
        out.append(indent + 2, ' ');
        write(out, element, indent + 2);
      }
      out.push_back('\n');
      out.append(indent, ' ');
      out.push_back(']');
      return;
    }
    case Type::string:
      appendEscaped(out, value.get_ref<const std::string&>());
      return;
    default:
      out += value.dump();
      return;
  }
}

}  // namespace

std::string writePrettyJSON(const nlohmann::json& value) {
  // The library's own dump rejects invalid UTF-8; let it vouch for every string first.
  (void)value.dump();
  std::string out;
  write(out, value, 0);
  return out;
}

}  // namespace tidewatch
