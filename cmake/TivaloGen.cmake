# tivalo_generate(<emitter> OUTPUTS <files...>)
# Runs one emitter of tools/gen over the vendored schemas; its outputs land under ${TIVALO_GEN_DIR}.
file(GLOB TIVALO_GEN_SCRIPTS CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tools/gen/*.py)
file(GLOB_RECURSE TIVALO_SCHEMA_FILES CONFIGURE_DEPENDS ${TIVALO_SCHEMA_DIR}/*.xsd)

function(tivalo_generate emitter)
  cmake_parse_arguments(G "" "" "OUTPUTS" ${ARGN})
  add_custom_command(
    OUTPUT ${G_OUTPUTS}
    COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/tools/gen/gen.py ${emitter}
            --schemas ${TIVALO_SCHEMA_DIR} --out ${TIVALO_GEN_DIR}
    DEPENDS ${TIVALO_GEN_SCRIPTS} ${TIVALO_SCHEMA_FILES}
    COMMENT "Generating ${emitter} from the UBL 2.0 schemas"
    VERBATIM)
endfunction()
