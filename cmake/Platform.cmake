# Platform files: a source named *_win32.cpp is built only for Windows, one
# named *_posix.cpp only elsewhere; the rest on both.
#   xmlrpcs_platform_sources(VAR) filters the list in VAR in place.
function(xmlrpcs_platform_sources var)
  set(kept)
  foreach(file ${${var}})
    if(WIN32 AND file MATCHES "_posix\\.cpp$")
      continue()
    endif()
    if(NOT WIN32 AND file MATCHES "_win32\\.cpp$")
      continue()
    endif()
    list(APPEND kept ${file})
  endforeach()
  set(${var} ${kept} PARENT_SCOPE)
endfunction()

# The name of the platform folders (include_posix/, include_win32/).
if(WIN32)
  set(XMLRPCS_PLATFORM win32)
else()
  set(XMLRPCS_PLATFORM posix)
endif()
