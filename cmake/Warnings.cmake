# Warnings on for every target of the project; a clean build is the rule.
add_compile_options(-Wall -Wextra -Wpedantic)
