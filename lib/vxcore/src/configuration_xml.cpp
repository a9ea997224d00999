// The configuration's file form: writing it (compact or readable with
// comments), reading it back by the constraints' types, and its schemas.
#include <vxcore/configuration.h>

#include <cctype>
#include <set>

#include <vxbase/es.h>
#include <vxcore/property_all.h>
#include <vxcore/property_text.h>
#include <vxcore/xml_reader.h>

namespace vxcore {

namespace {

constexpr const char* location = "lib/vxcore/configuration";
constexpr const char* xml_declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
// Indent step of the readable form and of the schemas.
constexpr std::size_t indent_step = 2;
// Comment lines of the readable form are wrapped to stay within this width.
constexpr std::size_t comment_width = 80;

bool is_xml_name(const std::string& s) {
  if (s.empty()) return false;
  const auto start_ok = [](unsigned char c) { return std::isalpha(c) || c == '_' || c >= 0x80; };
  if (!start_ok(static_cast<unsigned char>(s[0]))) return false;
  for (unsigned char c : s) {
    if (!(start_ok(c) || std::isdigit(c) || c == '-' || c == '.')) return false;
  }
  return true;
}

// Character data: the markup characters escaped; CR kept as a reference
// since a parser turns a raw CR into LF; characters XML 1.0 cannot carry
// (controls other than tab and line ends) become U+FFFD.
std::string escaped(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\r':
        out += "&#13;";
        break;
      default:
        if (c < 0x20 && c != '\t' && c != '\n') {
          out += "\xEF\xBF\xBD";
        } else {
          out += ch;
        }
    }
  }
  return out;
}

// Comment text: "--" may not appear in a comment, nor a '-' at its end.
std::string comment_safe(std::string text) {
  std::size_t pos;
  while ((pos = text.find("--")) != std::string::npos) text.replace(pos, 2, "- -");
  if (!text.empty() && text.back() == '-') text += ' ';
  return text;
}

// Words of text wrapped into lines of at most width characters after pad.
std::vector<std::string> wrapped(const std::string& text, std::size_t width) {
  std::vector<std::string> lines;
  std::string line;
  std::size_t pos = 0;
  while (pos < text.size()) {
    const auto space = text.find(' ', pos);
    const std::string word =
        text.substr(pos, space == std::string::npos ? std::string::npos : space - pos);
    pos = space == std::string::npos ? text.size() : space + 1;
    if (word.empty()) continue;
    if (!line.empty() && line.size() + 1 + word.size() > width) {
      lines.push_back(line);
      line.clear();
    }
    line += (line.empty() ? "" : " ") + word;
  }
  if (!line.empty()) lines.push_back(line);
  return lines;
}

class writer {
 public:
  writer(std::string& out, bool readable, const property_info_db* info)
      : out_(out), readable_(readable), info_(info) {}

  void tree(const properties& tree, const constraint_db* db, const std::string& path,
            std::size_t depth) {
    std::set<std::string> done;
    if (db) {
      for (const auto& e : db->entries()) {
        done.insert(e.name);
        if (!tree.is_present(e.name)) continue;
        const auto nested = dynamic_cast<const constraint_db*>(e.rule.get());
        key(e.name, tree.get(e.name), nested, path, depth);
      }
    }
    for (const auto& [name, value] : tree) {
      if (!done.count(name)) key(name, value, nullptr, path, depth);
    }
  }

 private:
  void key(const std::string& name, const property_ptr& value, const constraint_db* db,
           const std::string& parent, std::size_t depth) {
    if (!value) return;
    if (!is_xml_name(name)) {
      vxbase::es::arg_raise(location, __LINE__, "configuration key '%s' is not an XML name",
                            name.c_str());
    }
    const std::string path = child_path(parent, name);
    const std::string pad = readable_ ? std::string(depth * indent_step, ' ') : "";
    const char* nl = readable_ ? "\n" : "";
    if (readable_) comment(path, pad);
    if (value->get_kind() == kind_properties) {
      out_ += pad + "<" + name + ">" + nl;
      tree(static_cast<const properties&>(*value), db, path, depth + 1);
      out_ += pad + "</" + name + ">" + nl;
    } else {
      out_ += pad + "<" + name + ">" + escaped(value->to_string()) + "</" + name + ">" + nl;
    }
  }

  // Title and description above the key, as one comment.
  void comment(const std::string& path, const std::string& pad) {
    const property_info_db::info* i = info_ ? info_->find(path) : nullptr;
    if (!i || (i->title.empty() && i->description.empty())) return;
    const std::string inner = pad + "     ";
    const std::size_t width = comment_width > inner.size() ? comment_width - inner.size() : 20;
    std::vector<std::string> lines;
    if (!i->title.empty()) lines.push_back(comment_safe(i->title));
    for (auto& l : wrapped(comment_safe(i->description), width)) lines.push_back(l);
    out_ += pad + "<!-- ";
    for (std::size_t n = 0; n < lines.size(); ++n) {
      if (n) out_ += "\n" + inner;
      out_ += lines[n];
    }
    out_ += " -->\n";
  }

  std::string& out_;
  bool readable_;
  const property_info_db* info_;
};

// Reads the children of el into tree by db; error set on failure.
bool read_tree(const xml::node& el, const constraint_db& db, const std::string& parent,
               properties& tree, std::string& error) {
  if (el.has_text()) {
    error = "line " + std::to_string(el.line) + ": " + (parent.empty() ? el.name : parent) +
            ": text where keys are expected";
    return false;
  }
  for (const xml::node& child : el.children) {
    const std::string path = child_path(parent, child.name);
    const std::string where = "line " + std::to_string(child.line) + ": " + path;
    const constraint_db::entry* e = db.find(child.name);
    if (!e) {
      error = where + ": unknown key";
      return false;
    }
    if (tree.is_present(child.name)) {
      error = where + ": given twice";
      return false;
    }
    if (!child.attributes.empty()) {
      error = where + ": attributes are not used here";
      return false;
    }
    if (const auto* nested = dynamic_cast<const constraint_db*>(e->rule.get())) {
      auto sub = vxbase::make_refcount<properties>(false);
      if (!read_tree(child, *nested, path, *sub, error)) return false;
      tree[child.name] = sub;
      continue;
    }
    if (!child.children.empty()) {
      error = where + ": elements where a value is expected";
      return false;
    }
    const int kind = e->rule ? e->rule->value_kind() : -1;
    const property_ptr value = property_from_text(kind < 0 ? kind_string : kind, child.text);
    if (!value) {
      error = where + ": '" + child.text + "' is not " +
              (e->rule ? e->rule->describe() : std::string("a value"));
      return false;
    }
    tree[child.name] = value;
  }
  return true;
}

std::string xsd_type(const schema_facets& f, const std::string& pad) {
  if (!f.min && !f.max && f.enumeration.empty()) return "";
  std::string out =
      pad + "<xs:simpleType>\n" + pad + "  <xs:restriction base=\"xs:" + f.base + "\">\n";
  if (f.min) out += pad + "    <xs:minInclusive value=\"" + std::to_string(*f.min) + "\"/>\n";
  if (f.max) out += pad + "    <xs:maxInclusive value=\"" + std::to_string(*f.max) + "\"/>\n";
  for (const auto& v : f.enumeration) {
    out += pad + "    <xs:enumeration value=\"" + escaped(v) + "\"/>\n";
  }
  return out + pad + "  </xs:restriction>\n" + pad + "</xs:simpleType>\n";
}

void xsd_db(std::string& out, const constraint_db& db, const property_info_db* info,
            const std::string& parent, const std::string& pad) {
  out += pad + "<xs:complexType>\n";
  if (!db.entries().empty()) {
    out += pad + "  <xs:all>\n";
    for (const auto& e : db.entries()) {
      const std::string path = child_path(parent, e.name);
      const std::string p = pad + "    ";
      const auto* nested = dynamic_cast<const constraint_db*>(e.rule.get());
      const schema_facets f = e.rule && !nested ? e.rule->schema() : schema_facets{};
      const std::string simple = nested ? "" : xsd_type(f, p + "  ");
      const property_info_db::info* i = info ? info->find(path) : nullptr;
      const bool documented = i && !(i->title.empty() && i->description.empty());
      out += p + "<xs:element name=\"" + e.name + "\" minOccurs=\"0\"";
      if (!nested && simple.empty()) out += " type=\"xs:" + f.base + "\"";
      if (!nested && simple.empty() && !documented) {
        out += "/>\n";
        continue;
      }
      out += ">\n";
      if (documented) {
        out += p + "  <xs:annotation><xs:documentation>" +
               escaped(i->title.empty()
                           ? i->description
                           : i->title + (i->description.empty() ? "" : ": ") + i->description) +
               "</xs:documentation></xs:annotation>\n";
      }
      if (nested) xsd_db(out, *nested, info, path, p + "  ");
      out += simple;
      out += p + "</xs:element>\n";
    }
    out += pad + "  </xs:all>\n";
  }
  if (parent.empty()) out += pad + "  <xs:attribute name=\"version\" type=\"xs:unsignedInt\"/>\n";
  out += pad + "</xs:complexType>\n";
}

std::string rng_data(const schema_facets& f, const std::string& pad) {
  if (!f.enumeration.empty()) {
    std::string out = pad + "<choice>\n";
    for (const auto& v : f.enumeration) out += pad + "  <value>" + escaped(v) + "</value>\n";
    return out + pad + "</choice>\n";
  }
  if (f.base == "string" && !f.min && !f.max) return pad + "<text/>\n";
  std::string out = pad + "<data type=\"" + f.base + "\"";
  if (!f.min && !f.max) return out + "/>\n";
  out += ">\n";
  if (f.min) out += pad + "  <param name=\"minInclusive\">" + std::to_string(*f.min) + "</param>\n";
  if (f.max) out += pad + "  <param name=\"maxInclusive\">" + std::to_string(*f.max) + "</param>\n";
  return out + pad + "</data>\n";
}

void rng_db(std::string& out, const constraint_db& db, const std::string& pad) {
  if (db.entries().empty()) {
    out += pad + "<empty/>\n";
    return;
  }
  out += pad + "<interleave>\n";
  for (const auto& e : db.entries()) {
    const std::string p = pad + "  ";
    out += p + "<optional>\n" + p + "  <element name=\"" + e.name + "\">\n";
    if (const auto* nested = dynamic_cast<const constraint_db*>(e.rule.get())) {
      rng_db(out, *nested, p + "    ");
    } else {
      out += rng_data(e.rule ? e.rule->schema() : schema_facets{}, p + "    ");
    }
    out += p + "  </element>\n" + p + "</optional>\n";
  }
  out += pad + "</interleave>\n";
}

}  // namespace

void configuration::write_config(std::string& buffer, int format) const {
  if (format != format_compact && format != format_readable) {
    vxbase::es::arg_raise(location, __LINE__, "unknown configuration format %d", format);
  }
  const bool readable = format == format_readable;
  std::string out = xml_declaration;
  out += "<" + root_.first + " version=\"" + std::to_string(root_.second) + "\">";
  if (readable) out += "\n";
  writer(out, readable, info_.get()).tree(*config_, constraints_.get(), "", 1);
  out += "</" + root_.first + ">\n";
  buffer = std::move(out);
}

int configuration::read_config(const std::string& buffer, int format) {
  read_error_.clear();
  if (format != format_any && format != format_compact && format != format_readable) {
    read_error_ = "unknown configuration format " + std::to_string(format);
    return read_bad_format;
  }
  xml::reader reader;
  if (!reader.parse(buffer)) {
    read_error_ = reader.error();
    return read_not_well_formed;
  }
  const xml::node& root = reader.root();
  if (root.name != root_.first) {
    read_error_ = "root element is <" + root.name + ">, expected <" + root_.first + ">";
    return read_wrong_root;
  }
  properties tree(false);
  if (!read_tree(root, *constraints_, "", tree, read_error_)) return read_bad_value;
  set_config(tree);
  return read_ok;
}

void configuration::write_config_xsd(std::string& buffer) const {
  std::string out = xml_declaration;
  out += "<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\">\n";
  out += "  <xs:element name=\"" + root_.first + "\">\n";
  xsd_db(out, *constraints_, info_.get(), "", "    ");
  out += "  </xs:element>\n</xs:schema>\n";
  buffer = std::move(out);
}

void configuration::write_config_rng(std::string& buffer) const {
  std::string out = xml_declaration;
  out +=
      "<grammar xmlns=\"http://relaxng.org/ns/structure/1.0\"\n"
      "         datatypeLibrary=\"http://www.w3.org/2001/XMLSchema-datatypes\">\n"
      "  <start>\n";
  out += "    <element name=\"" + root_.first + "\">\n";
  out +=
      "      <optional><attribute name=\"version\"><data type=\"unsignedInt\"/></attribute>"
      "</optional>\n";
  rng_db(out, *constraints_, "      ");
  out += "    </element>\n  </start>\n</grammar>\n";
  buffer = std::move(out);
}

}  // namespace vxcore
