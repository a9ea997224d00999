// XmlRpcValue's model: construction, deep copies, the type assertions behind
// every accessor, size and member queries, and comparison.
#include "xmlrpc/XmlRpcValue.h"

#include <limits>
#include <ostream>

#include "xmlrpc/XmlRpcException.h"

namespace XmlRpc {

namespace {

const char kTypeError[] = "type error";
const char kExpectedArray[] = "type error: expected an array";
const char kExpectedStruct[] = "type error: expected a struct";
const char kIndexTooLarge[] = "range error: array index too large";

// Only the nine standard calendar fields belong to a date-time; the
// platform's extra fields (zone name, offset) stay zero.
void copyCalendarFields(struct tm& to, const struct tm& from) {
  to.tm_sec = from.tm_sec;
  to.tm_min = from.tm_min;
  to.tm_hour = from.tm_hour;
  to.tm_mday = from.tm_mday;
  to.tm_mon = from.tm_mon;
  to.tm_year = from.tm_year;
  to.tm_wday = from.tm_wday;
  to.tm_yday = from.tm_yday;
  to.tm_isdst = from.tm_isdst;
}

// The empty payloads an invalid constant value reads as.
const bool kFalse = false;
const int kZero = 0;
const double kZeroDouble = 0.0;
const std::string kEmptyString;
const XmlRpcValue::BinaryData kEmptyBinary;
const struct tm kZeroTime {};
const XmlRpcValue::ValueArray kEmptyArray;
const XmlRpcValue::ValueStruct kEmptyStruct;

}  // namespace

XmlRpcValue::XmlRpcValue(const std::string& value) : _type(TypeString) {
  _value.asString = new std::string(value);
}

XmlRpcValue::XmlRpcValue(std::string&& value) : _type(TypeString) {
  _value.asString = new std::string(std::move(value));
}

XmlRpcValue::XmlRpcValue(const char* value) : _type(TypeString) {
  _value.asString = value != nullptr ? new std::string(value) : new std::string();
}

XmlRpcValue::XmlRpcValue(const struct tm* value) : _type(TypeDateTime) {
  _value.asTime = new std::tm();
  if (value != nullptr) copyCalendarFields(*_value.asTime, *value);
}

XmlRpcValue::XmlRpcValue(const void* data, int nBytes) : _type(TypeBase64) {
  const char* bytes = static_cast<const char*>(data);
  _value.asBinary =
      (bytes != nullptr && nBytes > 0) ? new BinaryData(bytes, bytes + nBytes) : new BinaryData();
}

XmlRpcValue::XmlRpcValue(std::string_view xml, int* offset) : _type(TypeInvalid) {
  _value.asBinary = nullptr;
  fromXml(xml, offset);
}

XmlRpcValue::XmlRpcValue(const XmlRpcValue& other) : _type(other._type) {
  switch (other._type) {
    case TypeString:
      _value.asString = new std::string(*other._value.asString);
      break;
    case TypeDateTime:
      _value.asTime = new std::tm(*other._value.asTime);
      break;
    case TypeBase64:
      _value.asBinary = new BinaryData(*other._value.asBinary);
      break;
    case TypeArray:
      _value.asArray = new ValueArray(*other._value.asArray);
      break;
    case TypeStruct:
      _value.asStruct = new ValueStruct(*other._value.asStruct);
      break;
    default:  // invalid and the scalars live in the slot itself
      _value = other._value;
      break;
  }
}

XmlRpcValue::XmlRpcValue(XmlRpcValue&& other) noexcept : _type(other._type), _value(other._value) {
  other._type = TypeInvalid;
  other._value.asBinary = nullptr;
}

XmlRpcValue& XmlRpcValue::operator=(const XmlRpcValue& other) {
  if (this == &other) return *this;
  // Copy first: other may live inside this value (v = v[0]), and a copy
  // that throws must leave this value as it was.
  XmlRpcValue copy(other);
  return *this = std::move(copy);
}

XmlRpcValue& XmlRpcValue::operator=(XmlRpcValue&& other) noexcept {
  if (this == &other) return *this;
  // Detach other's payload before freeing ours, which may own other.
  const Type type = other._type;
  const auto value = other._value;
  other._type = TypeInvalid;
  other._value.asBinary = nullptr;
  invalidate();
  _type = type;
  _value = value;
  return *this;
}

void XmlRpcValue::invalidate() noexcept {
  switch (_type) {
    case TypeString:
      delete _value.asString;
      break;
    case TypeDateTime:
      delete _value.asTime;
      break;
    case TypeBase64:
      delete _value.asBinary;
      break;
    case TypeArray:
      delete _value.asArray;
      break;
    case TypeStruct:
      delete _value.asStruct;
      break;
    default:
      break;
  }
  _type = TypeInvalid;
  _value.asBinary = nullptr;
}

void XmlRpcValue::assertTypeOrInvalid(Type t) {
  if (_type == t) return;
  if (_type != TypeInvalid) throw XmlRpcException(kTypeError);
  switch (t) {
    case TypeBoolean:
      _value.asBool = false;
      break;
    case TypeInt:
      _value.asInt = 0;
      break;
    case TypeDouble:
      _value.asDouble = 0.0;
      break;
    case TypeString:
      _value.asString = new std::string();
      break;
    case TypeDateTime:
      _value.asTime = new std::tm();
      break;
    case TypeBase64:
      _value.asBinary = new BinaryData();
      break;
    case TypeArray:
      _value.asArray = new ValueArray();
      break;
    case TypeStruct:
      _value.asStruct = new ValueStruct();
      break;
    default:
      return;  // stays invalid
  }
  _type = t;
}

void XmlRpcValue::assertTypeOrInvalid(Type t) const {
  if (_type != t && _type != TypeInvalid) throw XmlRpcException(kTypeError);
}

void XmlRpcValue::assertArray(int size) {
  if (size < 0) size = 0;
  if (_type == TypeInvalid) {
    _value.asArray = new ValueArray(static_cast<std::size_t>(size));
    _type = TypeArray;
  } else if (_type == TypeArray) {
    if (_value.asArray->size() < static_cast<std::size_t>(size)) {
      _value.asArray->resize(static_cast<std::size_t>(size));
    }
  } else {
    throw XmlRpcException(kExpectedArray);
  }
}

void XmlRpcValue::assertStruct() {
  if (_type == TypeInvalid) {
    _value.asStruct = new ValueStruct();
    _type = TypeStruct;
  } else if (_type != TypeStruct) {
    throw XmlRpcException(kExpectedStruct);
  }
}

XmlRpcValue::operator bool&() {
  assertTypeOrInvalid(TypeBoolean);
  return _value.asBool;
}

XmlRpcValue::operator int&() {
  assertTypeOrInvalid(TypeInt);
  return _value.asInt;
}

XmlRpcValue::operator double&() {
  assertTypeOrInvalid(TypeDouble);
  return _value.asDouble;
}

XmlRpcValue::operator std::string&() {
  assertTypeOrInvalid(TypeString);
  return *_value.asString;
}

XmlRpcValue::operator BinaryData&() {
  assertTypeOrInvalid(TypeBase64);
  return *_value.asBinary;
}

XmlRpcValue::operator struct tm &() {
  assertTypeOrInvalid(TypeDateTime);
  return *_value.asTime;
}

XmlRpcValue::operator const bool&() const {
  assertTypeOrInvalid(TypeBoolean);
  return _type == TypeInvalid ? kFalse : _value.asBool;
}

XmlRpcValue::operator const int&() const {
  assertTypeOrInvalid(TypeInt);
  return _type == TypeInvalid ? kZero : _value.asInt;
}

XmlRpcValue::operator const double&() const {
  assertTypeOrInvalid(TypeDouble);
  return _type == TypeInvalid ? kZeroDouble : _value.asDouble;
}

XmlRpcValue::operator const std::string&() const {
  assertTypeOrInvalid(TypeString);
  return _type == TypeInvalid ? kEmptyString : *_value.asString;
}

XmlRpcValue::operator const BinaryData&() const {
  assertTypeOrInvalid(TypeBase64);
  return _type == TypeInvalid ? kEmptyBinary : *_value.asBinary;
}

XmlRpcValue::operator const struct tm &() const {
  assertTypeOrInvalid(TypeDateTime);
  return _type == TypeInvalid ? kZeroTime : *_value.asTime;
}

XmlRpcValue::ValueArray& XmlRpcValue::asArray() {
  assertArray(0);
  return *_value.asArray;
}

const XmlRpcValue::ValueArray& XmlRpcValue::asArray() const {
  if (_type == TypeInvalid) return kEmptyArray;
  if (_type != TypeArray) throw XmlRpcException(kExpectedArray);
  return *_value.asArray;
}

XmlRpcValue::ValueStruct& XmlRpcValue::asStruct() {
  assertStruct();
  return *_value.asStruct;
}

const XmlRpcValue::ValueStruct& XmlRpcValue::asStruct() const {
  if (_type == TypeInvalid) return kEmptyStruct;
  if (_type != TypeStruct) throw XmlRpcException(kExpectedStruct);
  return *_value.asStruct;
}

int XmlRpcValue::size() const {
  switch (_type) {
    case TypeString:
      return static_cast<int>(_value.asString->size());
    case TypeBase64:
      return static_cast<int>(_value.asBinary->size());
    case TypeArray:
      return static_cast<int>(_value.asArray->size());
    case TypeStruct:
      return static_cast<int>(_value.asStruct->size());
    default:
      throw XmlRpcException(kTypeError);
  }
}

bool XmlRpcValue::hasMember(const std::string& name) const {
  return _type == TypeStruct && _value.asStruct->find(name) != _value.asStruct->end();
}

XmlRpcValue& XmlRpcValue::operator[](int i) {
  // A negative index would address memory before the array. An array holds
  // at most INT_MAX elements (its size is an int), so INT_MAX is no index
  // and i + 1 below cannot wrap.
  if (i < 0 || i == std::numeric_limits<int>::max()) throw XmlRpcException(kIndexTooLarge);
  assertArray(i + 1);
  return (*_value.asArray)[static_cast<std::size_t>(i)];
}

const XmlRpcValue& XmlRpcValue::operator[](int i) const {
  if (_type != TypeArray) throw XmlRpcException(kExpectedArray);
  if (i < 0 || _value.asArray->size() < static_cast<std::size_t>(i) + 1) {
    throw XmlRpcException(kIndexTooLarge);
  }
  return (*_value.asArray)[static_cast<std::size_t>(i)];
}

XmlRpcValue& XmlRpcValue::operator[](const std::string& name) {
  assertStruct();
  return _value.asStruct->try_emplace(name).first->second;
}

XmlRpcValue& XmlRpcValue::operator[](const char* name) {
  assertStruct();
  return _value.asStruct->try_emplace(std::string(name != nullptr ? name : "")).first->second;
}

bool XmlRpcValue::operator==(const XmlRpcValue& other) const {
  if (_type != other._type) return false;
  switch (_type) {
    case TypeBoolean:
      return _value.asBool == other._value.asBool;
    case TypeInt:
      return _value.asInt == other._value.asInt;
    case TypeDouble:
      return _value.asDouble == other._value.asDouble;
    case TypeString:
      return *_value.asString == *other._value.asString;
    case TypeDateTime: {
      // The day of month is deliberately left out, like the fields that
      // depend on it.
      const struct tm& a = *_value.asTime;
      const struct tm& b = *other._value.asTime;
      return a.tm_sec == b.tm_sec && a.tm_min == b.tm_min && a.tm_hour == b.tm_hour &&
             a.tm_mon == b.tm_mon && a.tm_year == b.tm_year;
    }
    case TypeBase64:
      return *_value.asBinary == *other._value.asBinary;
    case TypeArray:
      return *_value.asArray == *other._value.asArray;
    case TypeStruct: {
      // Member values pairwise in name order; the names are not compared.
      const ValueStruct& a = *_value.asStruct;
      const ValueStruct& b = *other._value.asStruct;
      if (a.size() != b.size()) return false;
      for (auto ia = a.begin(), ib = b.begin(); ia != a.end(); ++ia, ++ib) {
        if (ia->second != ib->second) return false;
      }
      return true;
    }
    default:  // both invalid
      return true;
  }
}

std::ostream& operator<<(std::ostream& os, const XmlRpcValue& value) { return os << value.toXml(); }

}  // namespace XmlRpc
