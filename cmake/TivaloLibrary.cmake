# What each of the component's libraries (TivaloCOM for UBL 2.0, TivaloCOM21 for UBL 2.1) makes
# the same way, from its own generated tree.

# tivalo_module_tables(UBL <version> GENERATED <dir> OUT_VAR <var> [DISPATCH_PARTS <n>]): the
# module's tables of one UBL version, the dispatch tables (in n more files when the version's
# table in tools/gen/versions.py says so) and the registry scripts; <var> receives the sources to
# compile (on Windows the scripts are resources, not code).
function(tivalo_module_tables)
  cmake_parse_arguments(M "" "UBL;GENERATED;OUT_VAR;DISPATCH_PARTS" "" ${ARGN})
  set(dir ${M_GENERATED}/module)
  set(dispatch ${dir}/dispatch_tables.cpp)
  if(M_DISPATCH_PARTS)
    math(EXPR last "${M_DISPATCH_PARTS} - 1")
    foreach(part RANGE ${last})
      list(APPEND dispatch ${dir}/dispatch_tables_${part}.cpp)
    endforeach()
  endif()
  tivalo_generate(dispatch UBL ${M_UBL} OUTPUTS ${dispatch})
  tivalo_generate(registry UBL ${M_UBL} OUTPUTS ${dir}/registry_scripts.cpp ${dir}/registry_scripts.rc)
  # The dispatch tables are one template instantiation per member: keep them small.
  set_source_files_properties(${dispatch} PROPERTIES
    COMPILE_OPTIONS "-Os;-g0;$<$<BOOL:${WIN32}>:-Wa,-mbig-obj>")
  set(sources ${dispatch})
  if(NOT WIN32)
    list(APPEND sources ${dir}/registry_scripts.cpp)
  endif()
  set(${M_OUT_VAR} ${sources} PARENT_SCOPE)
endfunction()

# tivalo_library_exports(<target> NAME <name> UBL <version> GENERATED <dir> EXPORT_MAP <file>):
# what leaves the library. On Linux the version script <file> lists it and everything else is
# bound inside; on Windows the DLL <name>.dll carries its type library and registry scripts as
# resources and exports the five entry points by name.
function(tivalo_library_exports target)
  cmake_parse_arguments(E "" "NAME;UBL;GENERATED;EXPORT_MAP" "" ${ARGN})
  if(WIN32)
    include(TivaloWindows)
    tivalo_windows_module(${target} NAME ${E_NAME} UBL ${E_UBL} GENERATED ${E_GENERATED})
  else()
    target_link_options(${target} PRIVATE
      -Wl,--version-script=${E_EXPORT_MAP} -Wl,-Bsymbolic-functions -Wl,-z,pack-relative-relocs)
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${E_EXPORT_MAP})
  endif()
endfunction()

# tivalo_grammar_image(<target> IMAGE <file> SOURCE <file> SCHEMAS <dir> DEPENDS <files...>
#                      COMMENT <text>): the grammars of the main schemas in <dir>, compiled when
# the library is built and carried in it as SOURCE, so that a process's first validation against
# them reads them back instead of loading the schemas' text. A cross build cannot run the compiler
# it builds: its library loads the schemas as they are.
function(tivalo_grammar_image target)
  cmake_parse_arguments(G "" "IMAGE;SOURCE;SCHEMAS;COMMENT" "DEPENDS" ${ARGN})
  if(CMAKE_CROSSCOMPILING OR WIN32)
    return()
  endif()
  file(GLOB main_schemas ${G_SCHEMAS}/maindoc/*.xsd)
  list(SORT main_schemas)
  add_custom_command(OUTPUT ${G_IMAGE} ${G_SOURCE}
    COMMAND make_grammar_image ${G_IMAGE} ${G_SOURCE} ${main_schemas}
    DEPENDS make_grammar_image ${G_DEPENDS}
    COMMENT "${G_COMMENT}" VERBATIM)
  target_sources(${target} PRIVATE ${G_SOURCE})
endfunction()
