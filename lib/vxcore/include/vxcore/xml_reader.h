// xml::reader: parses an XML document into a small element tree, and
// validates documents against RELAX NG and XML Schema texts.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vxcore::xml {

// One element: its name, attributes in document order, its own character
// data (text and CDATA directly inside it, concatenated; comments and
// processing instructions are left out) and its child elements.
struct node {
  std::string name;
  std::vector<std::pair<std::string, std::string>> attributes;
  std::string text;
  std::vector<node> children;
  int line = 0;

  // The attribute's value, or null.
  const std::string* attribute(std::string_view attr_name) const;
  // The first child of that name, or null.
  const node* child(std::string_view child_name) const;
  // Whether text holds anything but blanks (space, tab, CR, LF).
  bool has_text() const;
};

class reader {
 public:
  // Elements nested deeper than this are refused: no configuration or
  // constraint file comes near it, and it bounds the recursion.
  static constexpr int max_depth = 64;

  // Parses buffer. Returns false, with error() saying what and where, when
  // the document is not well-formed, uses entities other than the five
  // predefined ones, or nests too deeply. No network or file access happens.
  bool parse(std::string_view buffer);

  // The root element of the last successful parse.
  const node& root() const noexcept { return root_; }
  const std::string& error() const noexcept { return error_; }

 private:
  node root_;
  std::string error_;
};

// Whether document is valid against the RELAX NG schema rng; on false,
// error names the first problem (or that the schema itself is broken).
bool validate_rng(std::string_view rng, std::string_view document, std::string& error);

// Whether document is valid against the XML Schema xsd; as validate_rng.
bool validate_xsd(std::string_view xsd, std::string_view document, std::string& error);

}  // namespace vxcore::xml
