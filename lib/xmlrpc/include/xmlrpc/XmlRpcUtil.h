// XmlRpcUtil: the engine's diagnostics (log and error with replaceable
// handlers) and the tag helpers that the XML readers scan their text with.
#pragma once

#include <string>
#include <string_view>

namespace XmlRpc {

// Receives every error message of the engine. Whoever installs a handler
// keeps it alive for as long as it is installed; the engine never deletes it.
class XmlRpcErrorHandler {
 public:
  static XmlRpcErrorHandler* getErrorHandler() { return _errorHandler; }
  static void setErrorHandler(XmlRpcErrorHandler* handler) { _errorHandler = handler; }

  // Reports one finished, zero-terminated message.
  virtual void error(const char* message) = 0;

 protected:
  // Handlers are never deleted through this base.
  ~XmlRpcErrorHandler() = default;

  static XmlRpcErrorHandler* _errorHandler;
};

// Receives the engine's progress messages. The verbosity decides which
// levels are produced at all: a message of level L is made only if L <= it.
class XmlRpcLogHandler {
 public:
  static XmlRpcLogHandler* getLogHandler() { return _logHandler; }
  static void setLogHandler(XmlRpcLogHandler* handler) { _logHandler = handler; }

  static int getVerbosity() { return _verbosity; }
  static void setVerbosity(int verbosity) { _verbosity = verbosity; }

  // Reports one finished, zero-terminated message of the given level.
  virtual void log(int level, const char* message) = 0;

 protected:
  ~XmlRpcLogHandler() = default;

  static XmlRpcLogHandler* _logHandler;
  static int _verbosity;
};

// The handlers installed at start: errors to standard error, log messages
// within the verbosity to standard output, each followed by a line end.
class DefaultErrorHandler : public XmlRpcErrorHandler {
 public:
  void error(const char* message) override;
};

class DefaultLogHandler : public XmlRpcLogHandler {
 public:
  void log(int level, const char* message) override;
};

class XmlRpcUtil {
 public:
  // Longest diagnostic text handed to a handler; longer messages are cut.
  // Diagnostics are one-line summaries, so a small stack buffer is enough.
  static constexpr int kMaxMessageLength = 1023;

  // Formats (printf conventions) and hands the message to the log handler,
  // but only when level <= verbosity; otherwise does no formatting at all.
  static void log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

  // Formats and always hands the message to the error handler.
  static void error(const char* format, ...) __attribute__((format(printf, 1, 2)));

  // The tag helpers scan `xml` from the byte offset `*offset` and move it
  // only on success. An offset outside the text makes every helper fail.

  // Returns the raw text between `tag` (searched from the offset on) and its
  // closing tag, and moves the offset past the closing tag; returns an empty
  // text with the offset unchanged when either is missing.
  static std::string parseTag(std::string_view tag, std::string_view xml, int* offset);

  // Searches `tag` from the offset; if found, moves the offset just past it.
  static bool findTag(std::string_view tag, std::string_view xml, int* offset);

  // Returns the next tag ("<" up to and including ">") after white space and
  // moves the offset past it; empty (offset unchanged) if no "<" comes next.
  static std::string getNextTag(std::string_view xml, int* offset);

  // True if, after white space, `tag` comes next; the offset then moves past
  // the white space and the tag.
  static bool nextTagIs(std::string_view tag, std::string_view xml, int* offset);

  // Replaces < > & ' " by their entities; text without them is returned as is.
  static std::string xmlEncode(std::string_view raw);

  // Replaces the five entities &lt; &gt; &amp; &apos; &quot; by their
  // characters, one pass, leaving any other ampersand as it stands.
  static std::string xmlDecode(std::string_view encoded);
};

}  // namespace XmlRpc
