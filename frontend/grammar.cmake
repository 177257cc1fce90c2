# The parser is made from frontend/grammar.y by Bison at build time; the
# generated source is a build product and is never committed.
#
# Include this before add_library(kvengine ...): it appends the generated
# source to KV_ENGINE_SOURCES. Included after the target exists, it adds the
# source to the target instead.
find_package(BISON 3.6 REQUIRED)

# -Werror: a new conflict, beyond what %expect declares, fails the build.
BISON_TARGET(KvGrammar
  ${CMAKE_SOURCE_DIR}/frontend/grammar.y
  ${CMAKE_BINARY_DIR}/generated/frontend/grammar.cpp
  COMPILE_FLAGS "-Wall -Werror")

if(TARGET kvengine)
  target_sources(kvengine PRIVATE ${BISON_KvGrammar_OUTPUTS})
else()
  list(APPEND KV_ENGINE_SOURCES ${BISON_KvGrammar_OUTPUTS})
endif()
