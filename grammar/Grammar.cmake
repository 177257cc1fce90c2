# The parser is made from grammar/Grammar.y by Bison at build time; the
# generated source is a build product and is never committed.
find_package(BISON 3.6 REQUIRED)

# Bison writes into this folder but does not make it, and only the Ninja
# generator makes output folders on its own.
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/generated/grammar)

# -Werror: a new conflict, beyond what %expect declares, fails the build.
BISON_TARGET(KvGrammar
  ${CMAKE_SOURCE_DIR}/grammar/Grammar.y
  ${CMAKE_BINARY_DIR}/generated/grammar/Grammar.cpp
  COMPILE_FLAGS "-Wall -Werror")
