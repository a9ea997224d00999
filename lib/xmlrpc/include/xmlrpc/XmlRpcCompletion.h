// XmlRpcCompletion: the handle through which a method that cannot answer at
// once (it waits for another process, a timer, ...) delivers its result later.
#pragma once

#include <memory>
#include <string>

namespace XmlRpc {

class XmlRpcValue;

// The waiting connection and the method share the handle. A method that
// answers later keeps the handle (XmlRpcCompletionPtr) and returns from
// XmlRpcServerMethod::executeAsync at once; the connection meanwhile reads
// nothing and is not subject to the request time-outs, while every other
// connection is served. When the method calls finish() or fail(), the
// connection builds the response exactly as if execute() had returned the
// result or thrown the fault, and sends it.
//
// Rules:
// - Only the first finish()/fail() counts; later calls are ignored.
// - Call them on the thread that runs the dispatcher (the loop's thread).
//   Calling them from inside executeAsync itself is allowed and answers as
//   execute() would.
// - When the client has gone (the connection closed while waiting),
//   abandoned() turns true and finish()/fail() do nothing. The handle keeps
//   no pointer to a closed connection, so holding it longer is harmless.
// - Inside system.multicall each entry gets its own handle; the next entry
//   starts only once the previous one's handle has been finished.
class XmlRpcCompletion {
 public:
  virtual ~XmlRpcCompletion() = default;

  // Delivers the result. A result left invalid is sent as an empty string,
  // as for execute().
  virtual void finish(const XmlRpcValue& result) = 0;
  // The same, taking the value over instead of copying it (a big result is
  // then held once). By default it calls the copying form.
  virtual void finish(XmlRpcValue&& result) { finish(static_cast<const XmlRpcValue&>(result)); }

  // Delivers a fault: what throwing XmlRpcException(message, code) from
  // execute() does.
  virtual void fail(const std::string& message, int code = -1) = 0;

  // True once the connection that waits for this result has closed; a
  // method may then drop the work it was doing for it.
  virtual bool abandoned() const = 0;
};

using XmlRpcCompletionPtr = std::shared_ptr<XmlRpcCompletion>;

}  // namespace XmlRpc
