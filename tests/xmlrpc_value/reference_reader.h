// A plain recursive reader of XML-RPC values kept only for the tests: it
// reads the long spellings the way the engine's reader did before that
// reader learned to remember its answers, re-reading text as often as the
// rules make it. Results must match the engine's reader; its speed does not.
#pragma once

#include <string_view>

#include "xmlrpc/XmlRpcValue.h"

namespace reference {

// Reads one value at *offset like XmlRpcValue::fromXml: on success *offset
// is past the value's "</value>"; on failure it is unchanged and value is
// invalid.
bool readValue(std::string_view xml, int* offset, XmlRpc::XmlRpcValue& value);

}  // namespace reference
