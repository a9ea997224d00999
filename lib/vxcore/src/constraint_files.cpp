// Reading the readable constraint files in their fixed order.
#include <vxcore/constraint_files.h>

#include <vxbase/es.h>
#include <vxbase/path.h>
#include <vxcore/xml_document.h>

namespace vxcore {

namespace {
constexpr const char* location = "lib/vxcore/constraint_files";
}

void add_constraint_file(constraint_db& db, const std::string& path, const std::string& rng_path,
                         const constraint_db* base) {
  xml::reader reader;
  xml::read_document_file(reader, path, xml::rng_validation, rng_path);
  try {
    db.add_constraints(reader, base, constraint_document_name, true);
  } catch (const vxbase::es::base& e) {
    // The reader does not know the file; the person fixing it needs to.
    vxbase::es::call_raise(location, __LINE__, "%s: %s", path.c_str(), e.what());
  }
}

void add_constraint_files(constraint_db& db, const std::string& xml_dir,
                          const std::string& rng_path) {
  bool first = true;
  for (const char* name : constraint_file_names) {
    add_constraint_file(db, vxbase::path_appended(xml_dir, name), rng_path, first ? nullptr : &db);
    first = false;
  }
}

}  // namespace vxcore
