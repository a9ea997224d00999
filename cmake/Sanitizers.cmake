# The sanitizer configuration: AddressSanitizer and UndefinedBehaviorSanitizer
# on every target, halting at the first report so a test fails loudly.
if(XMLRPCS_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
