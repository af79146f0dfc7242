# Runs after xsdcxx over one output directory (-DDIR=...). The generated parsers throw the
# runtime's "not derived" failure without the names of the two types; they throw one that names
# both instead (binding/errors.h). `r` holds the element's own type, `tmp` what xsi:type made.
file(GLOB sources "${DIR}/*.cxx")
foreach(source ${sources})
  file(READ "${source}" text)
  string(REPLACE "throw ::xsd::cxx::tree::not_derived< wchar_t > ();"
                 "throw ::Morvek::UBL2::not_derived_failure (r, *tmp);" named "${text}")
  if(NOT named STREQUAL text)
    string(REPLACE "// End prologue.\n" "// End prologue.\n\n#include \"binding/errors.h\"\n"
           named "${named}")
    file(WRITE "${source}" "${named}")
  endif()
endforeach()
