// opts: the program's command line: its options, what each sets, and the
// help text.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <vxbase/arg/optparser.h>

namespace xmlrpcs {

// Option codes.
inline constexpr int opt_unknown = vxbase::arg::optparser::code_unknown;
inline constexpr int opt_ds_enable = vxbase::arg::optparser::code_ds_enable;
inline constexpr int opt_ds_disable = vxbase::arg::optparser::code_ds_disable;
inline constexpr int opt_help = 'h';                  // 104
inline constexpr int opt_use_constraint_files = 'x';  // 120
inline constexpr int opt_cfg = -2000;
inline constexpr int opt_write_config = -2001;
inline constexpr int opt_rng = -2005;
inline constexpr int opt_xsd = -2006;
inline constexpr int opt_usecfg = -2010;

class opts : public vxbase::arg::opt_functor {
 public:
  // Registers the options and parses argv; a parser failure sets
  // parse_error. Raises like default_configuration_path when the default
  // configuration path cannot be resolved.
  opts(int argc, const char* const* argv);
  ~opts() override;

  // The option callback: records what the option asks for. Returns the
  // number of arguments taken, or -1 to stop parsing (help, an unknown
  // option) or for a code it does not handle.
  int operator()(int code, const std::vector<std::string>& args) override;

  // Adds the help text to the parser's description and prints it to
  // standard output.
  void print_help();

  // (use the file, its path)
  std::pair<bool, std::string> use_file;
  std::vector<std::string> ds_enable;
  std::vector<std::string> ds_disable;
  bool use_constraint_files = false;
  bool cfg = false;
  bool write_config = false;
  bool rng = false;
  bool xsd = false;
  bool help = false;
  bool parse_error = false;
  std::string extra;

 private:
  std::unique_ptr<vxbase::arg::optparser> parser_;
};

}  // namespace xmlrpcs
