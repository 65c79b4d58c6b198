#include "process_core/pretty_json.h"

#include <array>
#include <cstdint>

namespace tidewatch {
namespace {

using json = nlohmann::json;

// Marks a number held as its own text. JSON text never yields a binary value, so the mark
// cannot be forged by a file.
constexpr std::uint64_t numberTextSubtype = 0x4E;

// Builds the document through the library's own builder, but turns every number whose text the
// library would write otherwise into a binary value of that text.
class NumberKeepingReader final : public nlohmann::json_sax<json> {
 public:
  NumberKeepingReader(json& root, std::string_view bytes, size_t maxDepth)
      : builder_(root, /*allow_exceptions=*/false), bytes_(bytes), maxDepth_(maxDepth) {}

  bool null() override { return builder_.null(); }
  bool boolean(bool value) override { return builder_.boolean(value); }
  bool number_integer(number_integer_t value) override {
    const std::string_view text = nextNumberText();  // "-0" is the one integer that comes back changed
    return text == json(value).dump() ? builder_.number_integer(value) : keep(text);
  }
  bool number_unsigned(number_unsigned_t value) override {
    const std::string_view text = nextNumberText();
    return text == json(value).dump() ? builder_.number_unsigned(value) : keep(text);
  }
  bool number_float(number_float_t value, const string_t& text) override {
    (void)nextNumberText();
    return text == json(value).dump() ? builder_.number_float(value, text) : keep(text);
  }
  bool string(string_t& value) override { return builder_.string(value); }
  bool binary(binary_t& value) override { return builder_.binary(value); }
  bool start_object(std::size_t size) override { return ++depth_ <= maxDepth_ && builder_.start_object(size); }
  bool key(string_t& name) override { return builder_.key(name); }
  bool end_object() override {
    --depth_;
    return builder_.end_object();
  }
  bool start_array(std::size_t size) override { return ++depth_ <= maxDepth_ && builder_.start_array(size); }
  bool end_array() override {
    --depth_;
    return builder_.end_array();
  }
  bool parse_error(std::size_t position, const std::string& token, const nlohmann::detail::exception& error) override {
    return builder_.parse_error(position, token, error);
  }

 private:
  bool keep(std::string_view text) {
    binary_t bytes(std::vector<std::uint8_t>(text.begin(), text.end()), numberTextSubtype);
    return builder_.binary(bytes);
  }

  // The text of the next number in the document. Numbers reach the handler in the order of the
  // text, and outside strings only numbers begin with '-' or a digit.
  std::string_view nextNumberText() {
    while (cursor_ < bytes_.size()) {
      const char c = bytes_[cursor_];
      if (c == '"') {
        for (++cursor_; cursor_ < bytes_.size() && bytes_[cursor_] != '"'; ++cursor_) {
          if (bytes_[cursor_] == '\\') ++cursor_;
        }
        ++cursor_;
      } else if (c == '-' || (c >= '0' && c <= '9')) {
        const size_t begin = cursor_;
        cursor_ = bytes_.find_first_not_of("+-.0123456789eE", cursor_);
        if (cursor_ == std::string_view::npos) cursor_ = bytes_.size();
        return bytes_.substr(begin, cursor_ - begin);
      } else {
        ++cursor_;
      }
    }
    return {};
  }

  nlohmann::detail::json_sax_dom_parser<json> builder_;
  std::string_view bytes_;
  size_t cursor_ = 0;
  size_t maxDepth_;
  size_t depth_ = 0;
};

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
    case Type::binary:
      if (const auto& bytes = value.get_binary(); bytes.has_subtype() && bytes.subtype() == numberTextSubtype) {
        out.append(bytes.begin(), bytes.end());
        return;
      }
      out += value.dump();
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

bool parseJSON(std::string_view bytes, nlohmann::json_sax<json>& handler) {
  if (bytes.find('\0') != std::string_view::npos) return false;
  try {
    return json::sax_parse(bytes.begin(), bytes.end(), &handler, json::input_format_t::json, /*strict=*/true);
  } catch (const json::exception&) {
    return false;
  }
}

json parseJSON(std::string_view bytes) {
  if (bytes.find('\0') != std::string_view::npos) return json(json::value_t::discarded);
  return json::parse(bytes.begin(), bytes.end(), nullptr, /*allow_exceptions=*/false);
}

json parseJSONKeepingNumbers(std::string_view bytes, size_t maxDepth) {
  json root;
  NumberKeepingReader reader(root, bytes, maxDepth);
  if (!parseJSON(bytes, reader)) return json(json::value_t::discarded);
  return root;
}

}  // namespace tidewatch
