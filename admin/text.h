/// What may be stored as a name, and shown: UTF-8 without control characters.
#pragma once

#include <string>

#include "base/export.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

/// The length of the UTF-8 sequence at `position`; 0 when there is none, which is so for overlong forms, surrogates
/// and everything above U+10FFFF too.
MAILSERVER_EXPORT std::size_t SequenceLength(const std::string& text, std::size_t position);

/// The position of the first byte that is not UTF-8, npos if all is.
MAILSERVER_EXPORT std::size_t FindInvalidByte(const std::string& text);

/// Whether it is UTF-8 without control characters (U+0000 to U+001F, U+007F to U+009F).
MAILSERVER_EXPORT bool IsPlain(const std::string& text);

}  // namespace NIMBO::QUAYPOST_SERVER::admin
