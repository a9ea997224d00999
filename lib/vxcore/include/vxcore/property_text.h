// Property values from their text renderings, kind by kind: the inverse of
// property::to_string for the scalar kinds.
#pragma once

#include <string_view>

#include <vxcore/property.h>

namespace vxcore {

// Reads text as a value of kind:
//   bool     "true", "false", "1", "0"
//   int      optional sign and decimal digits, within 64 bits
//   real     a decimal or exponent number, "inf", "nan"
//   string, path   the text as it is
//   uuid     8-4-4-4-12 hex digits
//   time     "YYYY-MM-DDTHH:MM:SS[.ffffff]Z"
//   version  "a.b.c.d" (1 to 4 parts)
//   binary   hex digits, two per byte
// Blanks around the text are ignored except for string and path. Returns
// null when the text is not such a value or the kind has no text form
// (list, properties).
property_ptr property_from_text(int kind, std::string_view text);

}  // namespace vxcore
