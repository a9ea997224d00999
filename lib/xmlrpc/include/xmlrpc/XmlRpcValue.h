// XmlRpcValue: the one value type of the XML-RPC engine, a tagged variant of
// the nine XML-RPC kinds that owns its payload, and its XML form.
#pragma once

#include <cstddef>
#include <ctime>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace XmlRpc {

namespace detail {
struct ReadMemo;
struct ReadState;
}  // namespace detail

class XmlRpcValue {
 public:
  // The tag numbers are fixed: other parts of the engine switch on them.
  enum Type {
    TypeInvalid = 0,
    TypeBoolean = 1,
    TypeInt = 2,
    TypeDouble = 3,
    TypeString = 4,
    TypeDateTime = 5,
    TypeBase64 = 6,
    TypeArray = 7,
    TypeStruct = 8
  };

  using BinaryData = std::vector<char>;
  using ValueArray = std::vector<XmlRpcValue>;
  // Members ordered by plain byte-wise comparison of their names.
  // The transparent comparator lets names be looked up without a copy.
  using ValueStruct = std::map<std::string, XmlRpcValue, std::less<>>;

  // Deepest nesting of values that fromXml accepts (the outermost value
  // counts as one). Reading, writing, copying, comparing and destroying a
  // value recurse once per level: measured, 256 levels take under 100 KB of
  // stack in an optimised build and about 320 KB in the unoptimised
  // sanitizer build, far inside the 8 MB stack the dispatcher runs on and
  // common thread stacks, while real requests nest a handful of levels.
  static constexpr int kMaxNestingDepth = 256;

  XmlRpcValue() noexcept : _type(TypeInvalid) { _value.asBinary = nullptr; }
  XmlRpcValue(bool value) noexcept : _type(TypeBoolean) {
    _value.asBinary = nullptr;
    _value.asBool = value;
  }
  XmlRpcValue(int value) noexcept : _type(TypeInt) {
    _value.asBinary = nullptr;
    _value.asInt = value;
  }
  XmlRpcValue(double value) noexcept : _type(TypeDouble) { _value.asDouble = value; }
  XmlRpcValue(const std::string& value);
  XmlRpcValue(std::string&& value);
  XmlRpcValue(const char* value);
  // A date-time; only the nine standard calendar fields are kept.
  XmlRpcValue(const struct tm* value);
  // A base64 value holding a copy of nBytes bytes at data.
  XmlRpcValue(const void* data, int nBytes);
  // Reads the value at *offset of xml (see fromXml); invalid if none is there.
  XmlRpcValue(std::string_view xml, int* offset);

  XmlRpcValue(const XmlRpcValue& other);
  XmlRpcValue(XmlRpcValue&& other) noexcept;
  ~XmlRpcValue() { invalidate(); }

  // Deep copy; assigning a value to itself leaves it as it is.
  XmlRpcValue& operator=(const XmlRpcValue& other);
  XmlRpcValue& operator=(XmlRpcValue&& other) noexcept;
  XmlRpcValue& operator=(bool value) { return *this = XmlRpcValue(value); }
  XmlRpcValue& operator=(int value) { return *this = XmlRpcValue(value); }
  XmlRpcValue& operator=(double value) { return *this = XmlRpcValue(value); }
  XmlRpcValue& operator=(const char* value) { return *this = XmlRpcValue(value); }
  XmlRpcValue& operator=(const std::string& value) { return *this = XmlRpcValue(value); }
  XmlRpcValue& operator=(std::string&& value) { return *this = XmlRpcValue(std::move(value)); }

  // Equality by type and content. Date-times compare seconds, minutes, hours,
  // month and year only; structs compare their member values in name order
  // and not the names themselves.
  bool operator==(const XmlRpcValue& other) const;
  bool operator!=(const XmlRpcValue& other) const { return !(*this == other); }

  Type getType() const noexcept { return _type; }
  bool valid() const noexcept { return _type != TypeInvalid; }
  // Frees the payload; the value becomes invalid.
  void invalidate() noexcept;
  void clear() noexcept { invalidate(); }

  // Typed access. An invalid value first becomes the requested type with an
  // empty payload; a value of another type throws XmlRpcException("type
  // error") and stays unchanged. No accessor converts between types.
  operator bool&();
  operator int&();
  operator double&();
  operator std::string&();
  operator BinaryData&();
  operator struct tm &();
  // Read-only access: the same type check; an invalid constant value reads
  // as the empty payload of the requested type (it cannot change itself).
  operator const bool&() const;
  operator const int&() const;
  operator const double&() const;
  operator const std::string&() const;
  operator const BinaryData&() const;
  operator const struct tm &() const;

  // The array and struct payloads, for iteration. The writable forms turn an
  // invalid value into an empty array or struct; any other type throws
  // "type error: expected an array" or "type error: expected a struct".
  ValueArray& asArray();
  const ValueArray& asArray() const;
  ValueStruct& asStruct();
  const ValueStruct& asStruct() const;

  // Length in bytes of a string or base64 value, element count of an array,
  // member count of a struct; throws "type error" for any other type.
  int size() const;
  // Makes the value an array of at least n elements (new ones invalid).
  void setSize(int n) { assertArray(n); }
  // True only for a struct that holds the member; never creates it.
  bool hasMember(const std::string& name) const;

  // Writable element access: grows an invalid value or a short array to
  // i + 1 elements; any other type throws "type error: expected an array".
  XmlRpcValue& operator[](int i);
  // Read-only element access: throws "type error: expected an array" or
  // "range error: array index too large".
  const XmlRpcValue& operator[](int i) const;
  // Writable member access: an invalid value becomes an empty struct, a
  // missing member is inserted invalid; any other type throws
  // "type error: expected a struct".
  XmlRpcValue& operator[](const std::string& name);
  XmlRpcValue& operator[](const char* name);

  // The value's XML-RPC text, tags joined without blanks; empty when invalid.
  std::string toXml() const;
  // Appends the value's XML-RPC text to out (saves a copy per nested value).
  void appendXml(std::string& out) const;

  // Remembers, across several reads of one text, what the reader learnt
  // about it: where its forward searches for closing tags landed and, once
  // a text turns out to be costly, the outcome of every value read at each
  // place. Reads of the same text then cost time linear in its length
  // whatever its shape: pass one scan to every fromXml on the same text
  // (the parameters of one request, say). A scan handed a different text
  // starts afresh; the text must not change while in use.
  class TextScan {
   public:
    TextScan();
    ~TextScan();
    TextScan(TextScan&&) noexcept;
    TextScan& operator=(TextScan&&) noexcept;

    // Units of work the reads of this text have done so far: about one per
    // byte scanned plus a few per value read. For tests that bound it.
    std::size_t work() const { return _work; }
    // Makes the reads remember from the start instead of once the plain
    // reading has spent its budget; the results are the same either way.
    // For tests, and for callers that expect hostile texts.
    void rememberFromStart() { _rememberFromStart = true; }

    // The last search for one tag: from where, and where it was found
    // (npos when it was not).
    struct Search {
      bool done = false;
      std::size_t from = 0;
      std::size_t found = 0;
    };

   private:
    friend class XmlRpcValue;
    const char* _text = nullptr;
    std::size_t _size = 0;
    std::size_t _work = 0;
    bool _rememberFromStart = false;
    Search _valueEnd, _nameOpen, _nameClose;
    // What every value read found, kept once the plain reading of this text
    // has spent its budget of work.
    std::unique_ptr<detail::ReadMemo> _memo;
  };

  // Reads one <value> at *offset of xml, replacing this value's content.
  // On success *offset points past the value's "</value>"; on failure it is
  // left where it was and the value is invalid. Never throws on bad text.
  bool fromXml(std::string_view xml, int* offset);
  // The same, sharing the searches of earlier reads of the same text.
  bool fromXml(std::string_view xml, int* offset, TextScan& scan);

  // The process-wide printf format of doubles, "%f" unless changed.
  static const std::string& getDoubleFormat();
  static void setDoubleFormat(const char* format);

 private:
  void assertTypeOrInvalid(Type t);
  void assertTypeOrInvalid(Type t) const;
  void assertArray(int size);
  void assertStruct();

  bool readValue(std::string_view xml, int* offset, detail::ReadState& state);
  // The scalar readers start at *offset; nextTag is where the next "<"
  // is (npos if none), which none of them reads past.
  bool readBoolean(std::string_view xml, int* offset);
  bool readInt(std::string_view xml, int* offset);
  bool readDouble(std::string_view xml, int* offset, std::size_t nextTag);
  bool readString(std::string_view xml, int* offset, std::size_t nextTag);
  bool readDateTime(std::string_view xml, int* offset, std::size_t nextTag);
  bool readBase64(std::string_view xml, int* offset, std::size_t nextTag);
  bool readArray(std::string_view xml, int* offset, detail::ReadState& state);
  bool readStruct(std::string_view xml, int* offset, detail::ReadState& state);
  // Reads into child at *offset and tells the height (levels of nesting) it
  // looked at, 0 when no value starts there.
  static bool readChild(XmlRpcValue& child, std::string_view xml, int* offset,
                        detail::ReadState& state, int& height);
  // The outcomes of the elements of an array and the members of a struct
  // from *offset on, remembered place by place; nothing is kept.
  static bool measureElements(std::string_view xml, int* offset, detail::ReadState& state);
  static bool measureMembers(std::string_view xml, int* offset, detail::ReadState& state);

  void appendDouble(std::string& out) const;
  void appendDateTime(std::string& out) const;
  void appendBase64(std::string& out) const;

  Type _type;
  // One 8-byte slot: scalars by value, everything else as an owned pointer.
  union {
    bool asBool;
    int asInt;
    double asDouble;
    std::string* asString;
    struct tm* asTime;
    BinaryData* asBinary;
    ValueArray* asArray;
    ValueStruct* asStruct;
  } _value;
};

// Writes the value's XML-RPC text; meant for diagnostics and test output.
std::ostream& operator<<(std::ostream& os, const XmlRpcValue& value);

}  // namespace XmlRpc
