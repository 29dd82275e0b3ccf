# SPDX-License-Identifier: MIT
# Warnings and sanitizers for every target of the project.

add_compile_options(-Wall -Wextra -Werror)

if(EDIDVM_SANITIZE)
  add_compile_options(-fsanitize=${EDIDVM_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${EDIDVM_SANITIZE})
endif()
