// The German locale compiled into a private folder with localedef, so the
// test does not depend on the locales installed on the machine.
#include "decimal_comma_locale.h"

#include <clocale>
#include <cstdlib>
#include <filesystem>

#include "test_support.h"

namespace xmlrpc_test {

namespace {
std::filesystem::path locale_dir;
}

bool switch_to_decimal_comma(std::string& why_not) {
  locale_dir = test_support::make_temp_dir("xmlrpc-locale-");
  const std::string command = "localedef -i de_DE -f UTF-8 " + locale_dir.string() +
                              "/de_DE.UTF-8 >/dev/null 2>&1";
  (void)std::system(command.c_str());  // warnings give a non-zero status
  test_support::set_env("LOCPATH", locale_dir.string());
  if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr) return true;
  why_not = "localedef could not build de_DE.UTF-8 (package locales missing)";
  return false;
}

void leave_decimal_comma() {
  std::setlocale(LC_NUMERIC, "C");
  test_support::unset_env("LOCPATH");
  std::error_code ignored;
  std::filesystem::remove_all(locale_dir, ignored);
}

}  // namespace xmlrpc_test
