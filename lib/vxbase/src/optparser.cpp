// The command line parser and its help text rendering.
#include <vxbase/arg/optparser.h>

#include <cctype>

namespace vxbase::arg {

namespace {

// Columns of indent levels 1 to 4.
constexpr std::size_t indent_columns[] = {0, 0, 2, 4, 8};
// How far an option's text sits below its synopsis.
constexpr std::size_t option_text_indent = 12;

bool is_short_code(int code) { return code > ' ' && code < 127 && std::isalpha(code); }

}  // namespace

optparser::optparser(opt_functor& target) : target_(target) {
  add_opt(code_ds_enable, ds_enable_name, 0, 1, "filter");
  add_opt(code_ds_disable, ds_disable_name, 0, 1, "filter");
}

void optparser::add_opt(int code, const char* long_name, int, int arg_count, const char* arg_name) {
  options_.push_back(
      {code, long_name ? long_name : "", arg_count > 0 ? 1 : 0, arg_name ? arg_name : "argument"});
}

const optparser::option* optparser::find_long(const std::string& name) const {
  for (const option& o : options_) {
    if (!o.long_name.empty() && o.long_name == name) return &o;
  }
  return nullptr;
}

const optparser::option* optparser::find_short(char letter) const {
  for (const option& o : options_) {
    if (is_short_code(o.code) && o.code == letter) return &o;
  }
  return nullptr;
}

bool optparser::parse(int argc, const char* const* argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i] ? argv[i] : "";
    if (word == "--") return i + 1 == argc;  // no positional arguments exist
    if (word.size() < 2 || word[0] != '-') return false;

    const option* o = nullptr;
    bool has_value = false;
    std::string value;
    if (word[1] == '-') {
      const auto eq = word.find('=');
      o = find_long(word.substr(2, eq == std::string::npos ? std::string::npos : eq - 2));
      if (eq != std::string::npos) {
        has_value = true;
        value = word.substr(eq + 1);
      }
    } else if (word.size() == 2) {
      o = find_short(word[1]);
    }
    if (!o) {
      if (target_(code_unknown, {word}) == -1) return true;
      continue;
    }

    std::vector<std::string> args;
    if (has_value) {
      if (o->arg_count == 0) return false;
      args.push_back(value);
    } else if (o->arg_count > 0 && i + 1 < argc && argv[i + 1] && argv[i + 1][0] != '-') {
      args.push_back(argv[++i]);
    }
    if (target_(o->code, args) == -1) return true;
  }
  return true;
}

void optparser::add_desc_paragraph() {
  if (lines_.empty() || !lines_.back().empty()) lines_.emplace_back();
}

void optparser::add_line(std::size_t indent, const std::string& text) {
  // Keep the text's own leading blanks (they line continuation lines up)
  // and wrap at word boundaries past the terminal width.
  std::size_t lead = 0;
  while (lead < text.size() && text[lead] == ' ') ++lead;
  const std::string pad(indent + lead, ' ');
  std::string rest = text.substr(lead);
  while (pad.size() + rest.size() > help_width) {
    const std::size_t room = help_width - pad.size();
    std::size_t cut = rest.rfind(' ', room);
    if (cut == std::string::npos || cut == 0) {
      cut = rest.find(' ');
      if (cut == std::string::npos) break;
    }
    lines_.push_back(pad + rest.substr(0, cut));
    rest = rest.substr(cut + 1);
  }
  lines_.push_back(pad + rest);
}

void optparser::add_desc(const std::string& text) { add_line(indent_columns[indent_], text); }

std::string optparser::synopsis(const option& o) const {
  std::string out;
  if (is_short_code(o.code)) {
    out = std::string("-") + static_cast<char>(o.code);
    if (!o.long_name.empty()) out += ", ";
  }
  if (!o.long_name.empty()) out += "--" + o.long_name;
  if (o.arg_count > 0) out += " [<" + o.arg_name + ">]";
  return out;
}

void optparser::add_desc(int code, const std::string& text) {
  for (const option& o : options_) {
    if (o.code == code) {
      add_line(indent_columns[indent_], synopsis(o));
      break;
    }
  }
  add_line(indent_columns[indent_] + option_text_indent, text);
}

std::string optparser::help_text() const {
  std::string out;
  for (const std::string& line : lines_) {
    out += line;
    out += '\n';
  }
  return out;
}

void optparser::print_help(std::FILE* stream) const {
  const std::string text = help_text();
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
}

}  // namespace vxbase::arg
