// The program's options and help text.
#include "opts.h"

#include <cstdio>

#include <vxbase/strings.h>

#include "config_schema.h"

namespace xmlrpcs {

opts::opts(int argc, const char* const* argv)
    : use_file(false, default_configuration_path()),
      parser_(std::make_unique<vxbase::arg::optparser>(*this)) {
  parser_->add_opt(opt_cfg, "cfg", 0, 0);
  parser_->add_opt(opt_usecfg, "usecfg", 0, 1, "config file");
  parser_->add_opt(opt_help, "help", 0, 0);
  if (!parser_->parse(argc, argv)) parse_error = true;
}

opts::~opts() = default;

int opts::operator()(int code, const std::vector<std::string>& args) {
  switch (code) {
    case opt_ds_enable:
      if (args.empty()) ds_enable.emplace_back();
      for (const auto& a : args) ds_enable.push_back(a);
      break;
    case opt_ds_disable:
      for (const auto& a : args) ds_disable.push_back(a);
      break;
    case opt_unknown:
      std::fprintf(stderr, "*** Error: Unknown option '%s'\n", args.empty() ? "" : args[0].c_str());
      help = true;
      return -1;
    case opt_help:
      help = true;
      return -1;
    case opt_use_constraint_files:
      use_constraint_files = true;
      break;
    case opt_cfg:
      cfg = true;
      break;
    case opt_write_config:
      write_config = true;
      break;
    case opt_rng:
      rng = true;
      break;
    case opt_xsd:
      xsd = true;
      break;
    case opt_usecfg:
      use_file.first = true;
      use_file.second = args.empty() ? default_configuration_path() : args[0];
      break;
    default:
      return -1;
  }
  return static_cast<int>(args.size());
}

void opts::print_help() {
  vxbase::arg::optparser& p = *parser_;
  p.add_desc_paragraph();
  p.add_desc_paragraph();
  p.add_desc_indent4();
  p.add_desc(vxbase::string_with_format("%s %s", vxbase::upper_cased("Corvane").c_str(),
                                        vxbase::upper_cased("XMLRPCServer").c_str()));
  p.add_desc_paragraph();
  p.add_desc_indent1();
  p.add_desc("SYNOPSIS");
  p.add_desc_paragraph();
  p.add_desc_indent2();
  p.add_desc("Common options");
  p.add_desc_paragraph();
  p.add_desc_indent3();
  p.add_desc("CorvaneClientProxy.exe");
  p.add_desc("    [--cfg]");
  p.add_desc("    [--usecfg [<config file>]]");
  p.add_desc("    [-h] [--help]");
  p.add_desc_paragraph();
  p.add_desc_paragraph();
  p.add_desc("The following options are available:");
  p.add_desc_paragraph();
  p.add_desc_indent3();
  p.add_desc(opt_cfg, "Generate the default configuration file.");
  p.add_desc_paragraph();
  p.add_desc(opt_usecfg, "Use a configuration file.");
  p.add_desc("            If the specified file is not present, it will be");
  p.add_desc("            created and used.");
  p.add_desc("            If no argument is given, the default config file");
  p.add_desc("            will be used, and created if it doesn't exist.");
  p.add_desc("            This is the default configuration file:");
  p.add_desc_paragraph();
  p.add_desc(vxbase::string_with_format("%s", default_configuration_path().c_str()));
  p.add_desc_paragraph();
  p.add_desc_paragraph();
  p.add_desc(opt_help, "Display help.");
  p.add_desc_paragraph();
  p.add_desc_paragraph();
  p.print_help(stdout);
}

}  // namespace xmlrpcs
