// What the report routing tests share: a report call with a fixed origin,
// time stamps masked for comparison, and a fixture with the program's filter.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>

#include <vxcore/ds.h>
#include <vxcore/file_rotation_logger.h>

#include "report_routing.h"

namespace logging_test {

using vxcore::kind;

// Where the reports of these tests claim to come from.
constexpr const char* report_file = "app/common/xmlrpcs/xmlrpcserver";
constexpr std::uint32_t report_line = 417;

inline void report(const vxcore::configuration& config, vxcore::file_rotation_logger* logger,
            const char* module, kind k, std::int32_t severity, const char* message) {
  xmlrpcs::route_report(config, logger, report_file, report_line, module, k,
                        static_cast<vxbase::severity>(severity), message);
}

// What time stamps are replaced with before lines are compared.
inline const std::string stamp = "<time>";

// text with the time stamp that starts each line ("2026-11-22T11:19:00")
// replaced by stamp.
inline std::string unstamped(const std::string& text) {
  static constexpr std::string_view shape = "dddd-dd-ddTdd:dd:dd";
  std::string result;
  std::size_t at = 0;
  while (at < text.size()) {
    bool stamped = text.size() - at >= shape.size();
    for (std::size_t i = 0; stamped && i < shape.size(); ++i) {
      const char c = text[at + i];
      stamped = shape[i] == 'd' ? (c >= '0' && c <= '9') : c == shape[i];
    }
    if (stamped) {
      result += stamp;
      at += shape.size();
    }
    const auto end = text.find('\n', at);
    const auto next = end == std::string::npos ? text.size() : end + 1;
    result.append(text, at, next - at);
    at = next;
  }
  return result;
}

// Whether text, time stamps aside, is expected.
inline ::testing::AssertionResult matches(const std::string& text, const std::string& expected) {
  const std::string got = unstamped(text);
  if (got == expected) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "got:\n" << got << "expected:\n" << expected;
}

// A console line as the hook writes it.
inline std::string console_line(const std::string& header, const std::string& message) {
  return stamp + " <" + header + "> " + message + "\n";
}

class ReportRouting : public ::testing::Test {
 protected:
  void SetUp() override { vxcore::ds::push_filt("XMLRPCServer", true); }
  void TearDown() override { vxcore::ds::clear_filters(); }
};

}  // namespace logging_test
