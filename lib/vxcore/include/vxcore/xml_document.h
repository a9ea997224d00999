// Reading whole XML documents into an xml::reader, from a file (optionally
// validated against a RELAX NG schema file) or from text, raising on failure.
#pragma once

#include <string>
#include <string_view>

#include <vxcore/xml_reader.h>

namespace vxcore::xml {

// Validation kinds of read_document_file.
inline constexpr int no_validation = 0;
inline constexpr int rng_validation = 1;  // against the RELAX NG schema file given

// Reads the file at path into r. With rng_validation the document must be
// valid against the schema file at schema_path. Raises
// vxbase::es::call_error "<path>: <what is wrong>" when a file cannot be
// read, the document is not well-formed or not valid.
void read_document_file(reader& r, const std::string& path, int validation = no_validation,
                        const std::string& schema_path = {});

// Parses text into r. Raises vxbase::es::call_error "<what>: <what is
// wrong>" when it is not a well-formed document.
void read_document(reader& r, std::string_view text, const std::string& what = "document");

}  // namespace vxcore::xml
