// UTF-8 and control characters.
#include "admin/text.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

std::size_t SequenceLength(const std::string& text, std::size_t position) {
  const auto byte = [&](std::size_t offset) {
    return position + offset < text.size() ? static_cast<unsigned char>(text[position + offset]) : 0U;
  };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  if (first < 0xC2 || first > 0xF4) return 0;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  const unsigned second = byte(1);
  const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
  const bool surrogate = first == 0xED && second >= 0xA0;
  const bool tooHigh = first == 0xF4 && second >= 0x90;
  return overlong || surrogate || tooHigh ? 0 : length;
}

std::size_t FindInvalidByte(const std::string& text) {
  for (std::size_t i = 0, length = 0; i < text.size(); i += length) {
    length = SequenceLength(text, i);
    if (length == 0) return i;
  }
  return std::string::npos;
}

bool IsPlain(const std::string& text) {
  if (FindInvalidByte(text) != std::string::npos) return false;
  for (std::size_t i = 0; i < text.size(); i += SequenceLength(text, i)) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const bool isC1 = byte == 0xC2 && static_cast<unsigned char>(text[i + 1]) < 0xA0;
    if (byte < 0x20 || byte == 0x7F || isC1) return false;
  }
  return true;
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
