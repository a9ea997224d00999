// The element-tree reader and schema validation, on libxml2.
#include <vxcore/xml_reader.h>

#include <libxml/parser.h>
#include <libxml/relaxng.h>
#include <libxml/tree.h>
#include <libxml/xmlschemas.h>

#include <memory>

namespace vxcore::xml {

namespace {

// No network, no DTD loading, and libxml2's own limits stay on (no HUGE).
constexpr int parse_options = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;

struct doc_deleter {
  void operator()(xmlDoc* d) const { xmlFreeDoc(d); }
};
struct ctxt_deleter {
  void operator()(xmlParserCtxt* c) const { xmlFreeParserCtxt(c); }
};
using doc_ptr = std::unique_ptr<xmlDoc, doc_deleter>;

std::string trimmed(const char* msg) {
  std::string s = msg ? msg : "";
  while (!s.empty() && (s.back() == '\n' || s.back() == ' ')) s.pop_back();
  return s;
}

// Parses buffer into a document, error set on failure.
doc_ptr read_doc(std::string_view buffer, std::string& error) {
  std::unique_ptr<xmlParserCtxt, ctxt_deleter> ctxt(xmlNewParserCtxt());
  if (!ctxt) {
    error = "out of memory";
    return nullptr;
  }
  doc_ptr doc(xmlCtxtReadMemory(ctxt.get(), buffer.data(), static_cast<int>(buffer.size()), nullptr,
                                nullptr, parse_options));
  if (!doc) {
    const xmlError* e = xmlCtxtGetLastError(ctxt.get());
    error = e ? "line " + std::to_string(e->line) + ": " + trimmed(e->message)
              : std::string("not well-formed");
    return nullptr;
  }
  if (!xmlDocGetRootElement(doc.get())) {
    error = "no root element";
    return nullptr;
  }
  return doc;
}

bool convert(xmlNode* in, node& out, int depth, std::string& error) {
  if (depth > reader::max_depth) {
    error = "line " + std::to_string(xmlGetLineNo(in)) + ": elements nested deeper than " +
            std::to_string(reader::max_depth);
    return false;
  }
  out.name = reinterpret_cast<const char*>(in->name);
  out.line = static_cast<int>(xmlGetLineNo(in));
  for (xmlAttr* a = in->properties; a; a = a->next) {
    xmlChar* v = xmlNodeListGetString(in->doc, a->children, 1);
    out.attributes.emplace_back(reinterpret_cast<const char*>(a->name),
                                v ? reinterpret_cast<const char*>(v) : "");
    xmlFree(v);
  }
  for (xmlNode* c = in->children; c; c = c->next) {
    switch (c->type) {
      case XML_ELEMENT_NODE:
        out.children.emplace_back();
        if (!convert(c, out.children.back(), depth + 1, error)) return false;
        break;
      case XML_TEXT_NODE:
      case XML_CDATA_SECTION_NODE:
        if (c->content) out.text += reinterpret_cast<const char*>(c->content);
        break;
      case XML_ENTITY_REF_NODE:
        error = "line " + std::to_string(xmlGetLineNo(c)) + ": entity '" +
                reinterpret_cast<const char*>(c->name) + "' is not supported";
        return false;
      default:
        break;
    }
  }
  return true;
}

// Collects the first structured error message of a validation.
void collect_error(void* user, const xmlError* e) {
  auto* out = static_cast<std::string*>(user);
  if (out->empty() && e)
    out->assign("line " + std::to_string(e->line) + ": " + trimmed(e->message));
}

// libxml2 2.9 and 2.12 differ in the constness of the handler's argument.
void structured_error(void* user, xmlErrorPtr e) { collect_error(user, e); }

}  // namespace

const std::string* node::attribute(std::string_view attr_name) const {
  for (const auto& [k, v] : attributes) {
    if (k == attr_name) return &v;
  }
  return nullptr;
}

const node* node::child(std::string_view child_name) const {
  for (const node& c : children) {
    if (c.name == child_name) return &c;
  }
  return nullptr;
}

bool node::has_text() const { return text.find_first_not_of(" \t\r\n") != std::string::npos; }

bool reader::parse(std::string_view buffer) {
  error_.clear();
  root_ = node{};
  doc_ptr doc = read_doc(buffer, error_);
  if (!doc) return false;
  node fresh;
  if (!convert(xmlDocGetRootElement(doc.get()), fresh, 1, error_)) return false;
  root_ = std::move(fresh);
  return true;
}

bool validate_rng(std::string_view rng, std::string_view document, std::string& error) {
  error.clear();
  std::string parse_error;
  xmlRelaxNGParserCtxtPtr pctxt =
      xmlRelaxNGNewMemParserCtxt(rng.data(), static_cast<int>(rng.size()));
  if (!pctxt) {
    error = "schema: out of memory";
    return false;
  }
  xmlRelaxNGSetParserStructuredErrors(pctxt, structured_error, &parse_error);
  xmlRelaxNGPtr schema = xmlRelaxNGParse(pctxt);
  xmlRelaxNGFreeParserCtxt(pctxt);
  if (!schema) {
    error = "schema: " + (parse_error.empty() ? std::string("not a RELAX NG schema") : parse_error);
    return false;
  }
  bool ok = false;
  if (doc_ptr doc = read_doc(document, error)) {
    xmlRelaxNGValidCtxtPtr vctxt = xmlRelaxNGNewValidCtxt(schema);
    xmlRelaxNGSetValidStructuredErrors(vctxt, structured_error, &error);
    ok = xmlRelaxNGValidateDoc(vctxt, doc.get()) == 0;
    if (!ok && error.empty()) error = "not valid";
    xmlRelaxNGFreeValidCtxt(vctxt);
  }
  xmlRelaxNGFree(schema);
  return ok;
}

bool validate_xsd(std::string_view xsd, std::string_view document, std::string& error) {
  error.clear();
  std::string parse_error;
  xmlSchemaParserCtxtPtr pctxt =
      xmlSchemaNewMemParserCtxt(xsd.data(), static_cast<int>(xsd.size()));
  if (!pctxt) {
    error = "schema: out of memory";
    return false;
  }
  xmlSchemaSetParserStructuredErrors(pctxt, structured_error, &parse_error);
  xmlSchemaPtr schema = xmlSchemaParse(pctxt);
  xmlSchemaFreeParserCtxt(pctxt);
  if (!schema) {
    error = "schema: " + (parse_error.empty() ? std::string("not an XML Schema") : parse_error);
    return false;
  }
  bool ok = false;
  if (doc_ptr doc = read_doc(document, error)) {
    xmlSchemaValidCtxtPtr vctxt = xmlSchemaNewValidCtxt(schema);
    xmlSchemaSetValidStructuredErrors(vctxt, structured_error, &error);
    ok = xmlSchemaValidateDoc(vctxt, doc.get()) == 0;
    if (!ok && error.empty()) error = "not valid";
    xmlSchemaFreeValidCtxt(vctxt);
  }
  xmlSchemaFree(schema);
  return ok;
}

}  // namespace vxcore::xml
