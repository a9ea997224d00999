// The command line parser: long and short options with an optional argument,
// reported to an option functor by code, and the help text built from
// description operations.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace vxbase::arg {

// Receives every option the parser finds, by code, with its arguments.
class opt_functor {
 public:
  virtual ~opt_functor() = default;
  // Returns the number of arguments it took, or -1 to stop parsing there
  // (parsing then ends successfully).
  virtual int operator()(int code, const std::vector<std::string>& args) = 0;
};

class optparser {
 public:
  // An option that nobody registered; its one argument is the option text.
  static constexpr int code_unknown = 1;
  // The parser's own options: switch a debug-stream filter on or off by name.
  static constexpr int code_ds_enable = -1000;
  static constexpr int code_ds_disable = -1001;
  static constexpr const char* ds_enable_name = "ds-enable";
  static constexpr const char* ds_disable_name = "ds-disable";

  // Help lines are wrapped to fit a terminal of this width.
  static constexpr std::size_t help_width = 80;

  // target is called for every option found; it must outlive the parser.
  explicit optparser(opt_functor& target);

  // Registers "--long_name" under code; a code that is a printable ASCII
  // letter also answers to "-<letter>" (104 gives "-h"). flags is reserved
  // (0). arg_count 0: the option takes no argument; 1: it takes one optional
  // argument, "--name=value" or "--name value" (a following word that does
  // not start with '-'). arg_name names the argument in the help text.
  void add_opt(int code, const char* long_name, int flags, int arg_count,
               const char* arg_name = "argument");

  // Parses argv[1..argc-1]. Returns false when the command line is not
  // usable: a value given to an option that takes none ("--cfg=x") or a word
  // that belongs to no option. Unknown options are not failures: they go to
  // the functor as code_unknown.
  bool parse(int argc, const char* const* argv);

  // Help text operations. A paragraph break ends the line and leaves one
  // blank line (several breaks in a row still leave one); an indent level
  // (1 to 4) applies to the lines that follow; add_desc(text) writes a line;
  // add_desc(code, text) writes the option's synopsis and, below it, the
  // text further indented.
  void add_desc_paragraph();
  void add_desc_indent1() { indent_ = 1; }
  void add_desc_indent2() { indent_ = 2; }
  void add_desc_indent3() { indent_ = 3; }
  void add_desc_indent4() { indent_ = 4; }
  void add_desc(const std::string& text);
  void add_desc(int code, const std::string& text);

  // The help text as built so far.
  std::string help_text() const;
  void print_help(std::FILE* stream) const;

 private:
  struct option {
    int code;
    std::string long_name;
    int arg_count;
    std::string arg_name;
  };
  const option* find_long(const std::string& name) const;
  const option* find_short(char letter) const;
  std::string synopsis(const option& o) const;
  void add_line(std::size_t indent, const std::string& text);

  opt_functor& target_;
  std::vector<option> options_;
  std::vector<std::string> lines_;
  int indent_ = 1;
};

}  // namespace vxbase::arg
