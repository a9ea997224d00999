// Debug-stream filters: named switches that decide which diagnostic streams
// print (the console sink of the program's reports follows "XMLRPCServer").
#pragma once

#include <string>

namespace vxcore::ds {

// Switches the filter name on or off; a later push of the same name wins.
void push_filt(const std::string& name, bool enabled);

// Whether the filter is on. A name never pushed is off. A name of the form
// "base:level" is on when it was pushed on itself, or, never pushed itself,
// when "base" is on.
bool enabled(const std::string& name);

// Writes "<filter>: <text>\n" to standard error when the filter is enabled.
void print(const std::string& filter, const std::string& text);

// Forgets every filter (for tests).
void clear_filters();

}  // namespace vxcore::ds
