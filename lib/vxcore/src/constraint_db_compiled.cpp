// The compiled form of a constraint database: a compact text with every
// rule written out, read back without any schema or XML parsing.
#include <vxcore/constraint_db.h>

#include <charconv>
#include <string_view>

#include <vxbase/es.h>

namespace vxcore {

namespace {

constexpr const char* location = "lib/vxcore/constraint_db_compiled";

// First line of every compiled database; the number changes with the format.
constexpr std::string_view compiled_header = "corvane-cdb 1";

// Rules nest (structs in lists in structs); deeper than this is refused so
// that a damaged text cannot exhaust the stack. Real databases stay below 8.
constexpr int max_rule_depth = 32;

// Names and enumeration values become one token: "=" then the bytes, with
// blanks, controls, "%" and non-ASCII bytes as %XX.
void put_name(std::string& out, std::string_view name) {
  static constexpr char hex[] = "0123456789ABCDEF";
  out += '=';
  for (const char ch : name) {
    const auto b = static_cast<unsigned char>(ch);
    if (b <= 0x20 || b >= 0x7f || b == '%') {
      out += '%';
      out += hex[b >> 4];
      out += hex[b & 15];
    } else {
      out += ch;
    }
  }
}

void put_bound(std::string& out, const std::optional<std::int64_t>& b) {
  out += b ? std::to_string(*b) : std::string("*");
}

void put_rule(std::string& out, const constraint* rule, int indent);

void put_db(std::string& out, const constraint_db& db, int indent) {
  out += "struct " + std::to_string(db.get_flags()) + " " + std::to_string(db.entries().size());
  for (const constraint_db::entry& e : db.entries()) {
    out += '\n';
    out.append(static_cast<std::size_t>(indent + 1) * 2, ' ');
    put_name(out, e.name);
    out += ' ';
    out += std::to_string(e.flags);
    out += ' ';
    put_rule(out, e.rule.get(), indent + 1);
  }
}

void put_rule(std::string& out, const constraint* rule, int indent) {
  if (!rule) {
    out += "none";
  } else if (const auto* db = dynamic_cast<const constraint_db*>(rule)) {
    put_db(out, *db, indent);
  } else if (dynamic_cast<const constraint_bool*>(rule)) {
    out += "bool";
  } else if (dynamic_cast<const constraint_string*>(rule)) {
    out += "string";
  } else if (dynamic_cast<const constraint_int*>(rule)) {
    out += "int";
  } else if (dynamic_cast<const constraint_real*>(rule)) {
    out += "real";
  } else if (const auto* k = dynamic_cast<const constraint_kind*>(rule)) {
    out += "kind " + std::to_string(k->value_kind());
  } else if (const auto* r = dynamic_cast<const constraint_range_int*>(rule)) {
    out += "range ";
    put_bound(out, r->min());
    out += ' ';
    put_bound(out, r->max());
  } else if (const auto* en = dynamic_cast<const constraint_enum*>(rule)) {
    out += "enum " + std::to_string(en->allowed().size());
    for (const std::string& v : en->allowed()) {
      out += ' ';
      put_name(out, v);
    }
  } else if (const auto* l = dynamic_cast<const constraint_list*>(rule)) {
    out += "list ";
    put_rule(out, l->element().get(), indent);
  } else if (dynamic_cast<const constraint_any*>(rule)) {
    out += "any";
  } else {
    vxbase::es::call_raise(location, __LINE__, "constraint '%s' has no compiled form",
                           rule->describe().c_str());
  }
}

// Reads the tokens of a compiled text, one rule at a time.
class compiled_reader {
 public:
  explicit compiled_reader(std::string_view text) : text_(text) {}

  [[noreturn]] void fail(const std::string& what) const {
    vxbase::es::call_raise(location, __LINE__,
                           "invalid compiled constraint database at byte %zu: %s", pos_,
                           what.c_str());
  }

  std::string_view token() {
    while (pos_ < text_.size() && is_blank(text_[pos_])) ++pos_;
    const std::size_t start = pos_;
    while (pos_ < text_.size() && !is_blank(text_[pos_])) ++pos_;
    if (start == pos_) fail("unexpected end");
    return text_.substr(start, pos_ - start);
  }

  void expect_end() {
    while (pos_ < text_.size() && is_blank(text_[pos_])) ++pos_;
    if (pos_ != text_.size()) fail("unexpected text after the database");
  }

  std::int64_t number() {
    const std::string_view t = token();
    std::int64_t v = 0;
    const auto r = std::from_chars(t.data(), t.data() + t.size(), v);
    if (r.ec != std::errc() || r.ptr != t.data() + t.size())
      fail("expected a number, found '" + std::string(t) + "'");
    return v;
  }

  // A count of following items; bounded by the text left so that a damaged
  // count cannot make the reader reserve or loop without end.
  std::size_t count() {
    const std::int64_t n = number();
    if (n < 0 || static_cast<std::uint64_t>(n) > text_.size()) fail("impossible count");
    return static_cast<std::size_t>(n);
  }

  std::optional<std::int64_t> bound() {
    const std::size_t at = pos_;
    if (token() == "*") return std::nullopt;
    pos_ = at;
    return number();
  }

  std::string name() {
    const std::string_view t = token();
    if (t[0] != '=') fail("expected a name, found '" + std::string(t) + "'");
    std::string out;
    for (std::size_t i = 1; i < t.size(); ++i) {
      if (t[i] != '%') {
        out += t[i];
        continue;
      }
      int v = 0;
      if (i + 2 >= t.size()) fail("cut escape in a name");
      const auto r = std::from_chars(t.data() + i + 1, t.data() + i + 3, v, 16);
      if (r.ec != std::errc() || r.ptr != t.data() + i + 3) fail("bad escape in a name");
      out += static_cast<char>(v);
      i += 2;
    }
    return out;
  }

  constraint_ptr rule(int depth) {
    if (depth > max_rule_depth) fail("rules nested too deeply");
    const std::string_view t = token();
    if (t == "none") return nullptr;
    if (t == "bool") return vxbase::make_refcount<constraint_bool>();
    if (t == "string") return vxbase::make_refcount<constraint_string>();
    if (t == "int") return vxbase::make_refcount<constraint_int>();
    if (t == "real") return vxbase::make_refcount<constraint_real>();
    if (t == "any") return vxbase::make_refcount<constraint_any>();
    if (t == "kind") {
      const std::int64_t k = number();
      if (k < 0 || k >= property_kind_count) fail("unknown kind " + std::to_string(k));
      return vxbase::make_refcount<constraint_kind>(static_cast<property_kind>(k));
    }
    if (t == "range") {
      const auto lo = bound();
      const auto hi = bound();
      if (lo && hi && *lo > *hi) fail("empty range");
      return vxbase::make_refcount<constraint_range_int>(lo, hi);
    }
    if (t == "enum") {
      std::vector<std::string> allowed(count());
      for (std::string& v : allowed) v = name();
      return vxbase::make_refcount<constraint_enum>(std::move(allowed));
    }
    if (t == "list") return vxbase::make_refcount<constraint_list>(rule(depth + 1));
    if (t == "struct") {
      auto db = vxbase::make_refcount<constraint_db>(0);
      fill(*db, depth);
      return db;
    }
    fail("unknown rule '" + std::string(t) + "'");
  }

  // Reads "<flags> <count>" and the entries into db (after "struct").
  void fill(constraint_db& db, int depth) {
    const std::int64_t flags = number();
    if (flags < 0 || flags > constraint_db::allow_unknown_keys) fail("bad database flags");
    db = constraint_db(static_cast<int>(flags));
    const std::size_t n = count();
    for (std::size_t i = 0; i < n; ++i) {
      std::string key = name();
      const std::int64_t entry_flags = number();
      if (entry_flags < 0 || entry_flags > (constraint_db::required | constraint_db::nullable))
        fail("bad entry flags");
      if (db.find(key)) fail("entry '" + key + "' appears twice");
      db.add_constraint(key, rule(depth + 1), static_cast<int>(entry_flags));
    }
  }

 private:
  static bool is_blank(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

  std::string_view text_;
  std::size_t pos_ = 0;
};

}  // namespace

std::string constraint_db::to_compiled() const {
  std::string out(compiled_header);
  out += '\n';
  put_db(out, *this, 0);
  out += '\n';
  return out;
}

constraint_db::constraint_db(const std::string& compiled) : flags_(0) {
  compiled_reader in(compiled);
  const std::string_view header = compiled_header;
  const std::string_view magic = header.substr(0, header.find(' '));
  const std::string_view version = header.substr(header.find(' ') + 1);
  if (in.token() != magic || in.token() != version) in.fail("not a compiled constraint database");
  if (in.token() != "struct") in.fail("expected the top-level struct");
  in.fill(*this, 0);
  in.expect_end();
}

}  // namespace vxcore
