# tivalo_generate(<emitter> [UBL <version>] OUTPUTS <files...>)
# Runs one emitter of tools/gen over one UBL version's vendored schemas (2.0 unless UBL says
# otherwise); the outputs of 2.0 land under ${TIVALO_GEN_DIR}, those of 2.1 under ${TIVALO_GEN21_DIR}.
file(GLOB TIVALO_GEN_SCRIPTS CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tools/gen/*.py)
file(GLOB_RECURSE TIVALO_SCHEMA_FILES CONFIGURE_DEPENDS ${TIVALO_SCHEMA_DIR}/*.xsd)
file(GLOB_RECURSE TIVALO_SCHEMA21_FILES CONFIGURE_DEPENDS ${TIVALO_SCHEMA21_DIR}/*.xsd)

function(tivalo_generate emitter)
  cmake_parse_arguments(G "" "UBL" "OUTPUTS" ${ARGN})
  if(NOT G_UBL OR G_UBL STREQUAL "2.0")
    set(ubl 2.0)
    set(schemas ${TIVALO_SCHEMA_DIR})
    set(out ${TIVALO_GEN_DIR})
    set(inputs ${TIVALO_SCHEMA_FILES})
  elseif(G_UBL STREQUAL "2.1")
    set(ubl 2.1)
    set(schemas ${TIVALO_SCHEMA21_DIR})
    set(out ${TIVALO_GEN21_DIR})
    # The catalogue's class order is checked against its record.
    set(inputs ${TIVALO_SCHEMA21_FILES} ${CMAKE_SOURCE_DIR}/docs/ubl21-catalogue.md)
  else()
    message(FATAL_ERROR "tivalo_generate: no UBL version ${G_UBL}")
  endif()
  add_custom_command(
    OUTPUT ${G_OUTPUTS}
    COMMAND ${Python3_EXECUTABLE} ${CMAKE_SOURCE_DIR}/tools/gen/gen.py ${emitter} --ubl ${ubl}
            --schemas ${schemas} --out ${out}
    DEPENDS ${TIVALO_GEN_SCRIPTS} ${inputs}
    COMMENT "Generating ${emitter} from the UBL ${ubl} schemas"
    VERBATIM)
endfunction()
