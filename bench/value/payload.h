// The representative call payload the value benchmarks work on.
#pragma once

#include "xmlrpc/XmlRpcValue.h"

namespace bench {

// A struct of 20 members (strings and ints), a member holding a nested
// array of 50 structs, and a 10 KB base64 member; built the same way every
// time, so runs and the Python comparison see identical data.
XmlRpc::XmlRpcValue makeCallPayload();

}  // namespace bench
