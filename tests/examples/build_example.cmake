# cmake -DBUILD_DIR=... -DEXAMPLES_DIR=... -DWORK_DIR=... -DCXX=... -P build_example.cmake
set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "failed (${status}): ${ARGN}\n${out}\n${err}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

function(expect_in file text)
  file(READ ${file} content)
  string(FIND "${content}" "${text}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "${file} lacks '${text}':\n${content}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
foreach(installed include/tivalo/tivalo.h include/tivalo/interfaces.h
        include/tivalo/platform/automation.h share/tivalo/schemas/ubl-2.0/xsd/maindoc/UBL-Invoice-2.0.xsd)
  if(NOT EXISTS ${prefix}/${installed})
    message(FATAL_ERROR "not installed: ${installed}")
  endif()
endforeach()

function(expect_none_of text what)
  foreach(private xerces libxml libxslt "include/tivalo[ \"]" "#include \"platform/")
    string(REGEX MATCH "${private}" found "${text}")
    if(found)
      message(FATAL_ERROR "${what} mentions '${found}':\n${text}")
    endif()
  endforeach()
endfunction()

# The package names nothing of the library's parsers, and its headers include each other from
# include/ as "tivalo/...".
file(GLOB_RECURSE package_files ${prefix}/lib*/cmake/TivaloCOM/*.cmake ${prefix}/lib*/tivalo.pc
     ${prefix}/include/*.h)
foreach(package_file ${package_files})
  file(READ ${package_file} content)
  expect_none_of("${content}" ${package_file})
endforeach()

# Through the CMake package, by a consumer that asks for C++14 only: the target raises it to
# C++17, and the compile and link lines carry nothing but the package.
run(${CMAKE_COMMAND} -S ${EXAMPLES_DIR} -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_CXX_STANDARD=14)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build --verbose)
expect_none_of("${run_output}" "the example's build")
string(FIND "${run_output}" "++17" at)
if(at EQUAL -1)
  message(FATAL_ERROR "the example was not compiled as C++17:\n${run_output}")
endif()
run(${WORK_DIR}/build/write_invoice ${WORK_DIR}/invoice.xml)
expect_in(${WORK_DIR}/invoice.xml "<cbc:ID>INV-1001</cbc:ID>")
expect_in(${WORK_DIR}/invoice.xml "<cbc:IssueDate>2024-03-15</cbc:IssueDate>")
expect_in(${WORK_DIR}/invoice.xml "Atelier Lumière SARL")
expect_in(${WORK_DIR}/invoice.xml "<cbc:PayableAmount currencyID=\"EUR\">")

# The installed tool finds the installed schemas by itself.
run(${prefix}/bin/tivalo validate ${WORK_DIR}/invoice.xml)
string(FIND "${run_output}" ": ok" at)
if(at EQUAL -1)
  message(FATAL_ERROR "installed tivalo did not pass the example's invoice: ${run_output}")
endif()

# Through pkg-config.
find_program(PKG_CONFIG pkg-config REQUIRED)
file(GLOB_RECURSE pc_file ${prefix}/tivalo.pc)
get_filename_component(pc_dir "${pc_file}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} "${pc_dir}")
run(${PKG_CONFIG} --cflags --libs tivalo)
expect_none_of("${run_output}" "pkg-config's flags")
separate_arguments(flags UNIX_COMMAND "${run_output}")
run(${PKG_CONFIG} --variable=libdir tivalo)
string(STRIP "${run_output}" libdir)
run(${CXX} -std=c++17 ${EXAMPLES_DIR}/write_invoice.cpp ${flags} -Wl,-rpath,${libdir}
    -o ${WORK_DIR}/write_invoice_pc)
run(${WORK_DIR}/write_invoice_pc ${WORK_DIR}/invoice_pc.xml)
expect_in(${WORK_DIR}/invoice_pc.xml "<cbc:ID>INV-1001</cbc:ID>")

file(REMOVE_RECURSE ${WORK_DIR})
