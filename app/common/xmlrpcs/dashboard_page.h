// The dashboard page (web/index.html), compiled into the program at build
// time: the server answers it to "GET /" without reading any file.
#pragma once

#include <string_view>

namespace xmlrpcs {

// The page's bytes (HTML with its CSS and JavaScript inline).
std::string_view dashboard_page() noexcept;

// Its media type.
inline constexpr const char* dashboard_content_type = "text/html; charset=utf-8";

}  // namespace xmlrpcs
