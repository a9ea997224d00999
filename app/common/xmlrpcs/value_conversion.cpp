// The two recursive conversions between XmlRpcValue and properties.
#include "value_conversion.h"

#include <cstdint>
#include <new>

#include <vxcore/property_all.h>

namespace xmlrpcs {

namespace {

using vxbase::make_refcount;
using XmlRpc::XmlRpcValue;

vxcore::property_ptr convert(const XmlRpcValue& value) {
  switch (value.getType()) {
    case XmlRpcValue::TypeBoolean:
      return make_refcount<vxcore::property_bool>(static_cast<const bool&>(value));
    case XmlRpcValue::TypeInt:
      return make_refcount<vxcore::property_int>(
          static_cast<std::int64_t>(static_cast<const int&>(value)));
    case XmlRpcValue::TypeDouble:
      return make_refcount<vxcore::property_real>(static_cast<const double&>(value));
    case XmlRpcValue::TypeString:
      return make_refcount<vxcore::property_string>(static_cast<const std::string&>(value));
    case XmlRpcValue::TypeBase64: {
      const auto& bytes = static_cast<const XmlRpcValue::BinaryData&>(value);
      return make_refcount<vxcore::property_binary>(bytes.data(), bytes.size());
    }
    case XmlRpcValue::TypeArray: {
      auto list = make_refcount<vxcore::property_list>();
      for (int i = 0; i < value.size(); ++i) list->push_back(to_property(value[i]));
      return list;
    }
    case XmlRpcValue::TypeStruct: {
      auto map = make_refcount<vxcore::properties>(false);
      for (const auto& [name, member] : value.asStruct()) (*map)[name] = to_property(member);
      return map;
    }
    case XmlRpcValue::TypeDateTime:  // dropped on purpose: no property form
    case XmlRpcValue::TypeInvalid:
      break;
  }
  return nullptr;
}

}  // namespace

vxcore::property_ptr to_property(const XmlRpcValue& value) {
  try {
    return convert(value);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

XmlRpcValue to_xmlrpc(const vxcore::property& p) {
  XmlRpcValue out;
  switch (p.get_kind()) {
    case vxcore::kind_uuid:
    case vxcore::kind_time:
    case vxcore::kind_version:
    case vxcore::kind_string:
    case vxcore::kind_path:
      // string and path render as their stored text, byte for byte.
      out = p.to_string();
      break;
    case vxcore::kind_binary: {
      const auto& b = static_cast<const vxcore::property_binary&>(p);
      out = XmlRpcValue(b.begin(), static_cast<int>(b.size()));
      break;
    }
    case vxcore::kind_bool:
      out = static_cast<const vxcore::property_bool&>(p).value();
      break;
    case vxcore::kind_int: {
      // The low 32 bits, two's complement: 2^32 + 1 comes back as 1.
      const auto v = static_cast<const vxcore::property_int&>(p).value();
      out = static_cast<int>(static_cast<std::uint32_t>(v));
      break;
    }
    case vxcore::kind_real:
      out = static_cast<const vxcore::property_real&>(p).value();
      break;
    case vxcore::kind_list: {
      const auto& list = static_cast<const vxcore::property_list&>(p);
      XmlRpcValue::ValueArray& array = out.asArray();  // an empty array first
      array.reserve(list.size());
      for (const vxcore::property_ptr& item : list)
        array.push_back(item ? to_xmlrpc(*item) : XmlRpcValue());
      break;
    }
    case vxcore::kind_properties: {
      const auto& map = static_cast<const vxcore::properties&>(p);
      XmlRpcValue::ValueStruct& members = out.asStruct();  // an empty struct first
      // Both maps order their keys bytewise, so every member goes at the end.
      for (const auto& [key, item] : map)
        members.emplace_hint(members.end(), key, item ? to_xmlrpc(*item) : XmlRpcValue());
      break;
    }
    default:
      break;  // kinds unknown to this program stay invalid
  }
  return out;
}

}  // namespace xmlrpcs
