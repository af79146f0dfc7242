# tivalo_windows_module(<target> NAME <name> UBL <version> GENERATED <dir>): what makes the shared
# library the Windows component <name>.dll: the type library compiled by widl from the generated
# IDL (<dir>/module/<name>.typelib.idl, see tools/gen/emit_typelib_idl.py) as resource TYPELIB 1, the registry scripts as resources of type
# REGISTRY, and the five entry points exported by name from a module definition file.
find_program(TIVALO_WIDL_EXECUTABLE NAMES ${TIVALO_WIDL} x86_64-w64-mingw32-widl widl REQUIRED)
# oaidl.idl and friends come with Wine's development files; stdole2.tlb with Wine itself.
find_path(TIVALO_WINE_IDL_DIR oaidl.idl
  PATHS /usr/include/wine/wine/windows /usr/include/wine/windows NO_CMAKE_FIND_ROOT_PATH REQUIRED)
find_path(TIVALO_STDOLE_DIR stdole2.tlb
  PATHS /usr/lib/x86_64-linux-gnu/wine/x86_64-windows /usr/lib/wine/x86_64-windows
  NO_CMAKE_FIND_ROOT_PATH REQUIRED)

function(tivalo_windows_module target)
  cmake_parse_arguments(W "" "NAME;UBL;GENERATED" "" ${ARGN})
  set(module_dir ${W_GENERATED}/module)
  set(idl ${module_dir}/${W_NAME}.typelib.idl)
  tivalo_generate(typelib_idl UBL ${W_UBL} OUTPUTS ${idl})
  set(tlb ${module_dir}/${W_NAME}.tlb)
  add_custom_command(
    OUTPUT ${tlb}
    COMMAND ${TIVALO_WIDL_EXECUTABLE} -t -m64 -I ${TIVALO_WINE_IDL_DIR}
            -L ${TIVALO_STDOLE_DIR} -o ${tlb} ${idl}
    DEPENDS ${idl}
    COMMENT "Compiling the type library of ${W_NAME}"
    VERBATIM)
  set(rc ${module_dir}/${W_NAME}.rc)
  file(WRITE ${rc}.in
    "// The component's resources: the type library and the registry scripts.\n"
    "1 TYPELIB \"${W_NAME}.tlb\"\n"
    "#include \"registry_scripts.rc\"\n")
  configure_file(${rc}.in ${rc} COPYONLY)
  set_source_files_properties(${rc} PROPERTIES
    OBJECT_DEPENDS "${tlb};${module_dir}/registry_scripts.rc"
    COMPILE_OPTIONS "-I${module_dir}")
  set(TIVALO_LIBRARY_NAME ${W_NAME})
  configure_file(${CMAKE_SOURCE_DIR}/module/module.def.in ${module_dir}/${W_NAME}.def @ONLY)
  target_sources(${target} PRIVATE ${rc} ${module_dir}/${W_NAME}.def)
  set_target_properties(${target} PROPERTIES OUTPUT_NAME ${W_NAME} PREFIX ""
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
  target_link_options(${target} PRIVATE -s)  # no symbols: the DLL is for Windows, not for gdb
  target_link_libraries(${target} PRIVATE ole32 oleaut32 uuid advapi32 ws2_32)
endfunction()
