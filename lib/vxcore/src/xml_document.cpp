// Whole-document reading with errors raised, on top of xml::reader.
#include <vxcore/xml_document.h>

#include <vxbase/es.h>
#include <vxbase/fileutil.h>

namespace vxcore::xml {

namespace {
constexpr const char* location = "lib/vxcore/xml_document";
}

void read_document_file(reader& r, const std::string& path, int validation,
                        const std::string& schema_path) {
  const std::string text = vxbase::fileutil::get_file_content(path);
  if (validation == rng_validation) {
    const std::string schema = vxbase::fileutil::get_file_content(schema_path);
    std::string error;
    if (!validate_rng(schema, text, error)) {
      vxbase::es::call_raise(location, __LINE__, "%s: not valid against %s: %s", path.c_str(),
                             schema_path.c_str(), error.c_str());
    }
  } else if (validation != no_validation) {
    vxbase::es::arg_raise(location, __LINE__, "unknown validation kind %d", validation);
  }
  read_document(r, text, path);
}

void read_document(reader& r, std::string_view text, const std::string& what) {
  if (!r.parse(text)) {
    vxbase::es::call_raise(location, __LINE__, "%s: %s", what.c_str(), r.error().c_str());
  }
}

}  // namespace vxcore::xml
