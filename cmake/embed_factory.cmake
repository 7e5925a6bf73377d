# Writes OUT: a C++ source holding every JSON fragment of IN as a raw string.
# Each fragment is one JSON object; the host platform merges them at run time.
set(body "// Generated from share/device/factory/*.json; do not edit.\n#include <cstddef>\nextern const char* const kFactoryFragments[];\nextern const std::size_t kFactoryFragmentCount;\nconst char* const kFactoryFragments[] = {\n")
set(count 0)
foreach(f IN LISTS IN)
  file(READ ${f} content)
  string(APPEND body "R\"tolajson(${content})tolajson\",\n")
  math(EXPR count "${count}+1")
endforeach()
string(APPEND body "nullptr};\nconst std::size_t kFactoryFragmentCount = ${count};\n")
file(WRITE ${OUT}.tmp "${body}")
file(COPY_FILE ${OUT}.tmp ${OUT} ONLY_IF_DIFFERENT)
