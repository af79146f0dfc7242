# Run at install time after the headers are in place, with tivalo_installed_headers set to the
# installed include/tivalo directory: makes "platform/x.h" includes read "tivalo/platform/x.h".
file(GLOB_RECURSE headers "${tivalo_installed_headers}/*.h")
foreach(header ${headers})
  file(READ "${header}" text)
  string(REPLACE "#include \"platform/" "#include \"tivalo/platform/" rooted "${text}")
  if(NOT rooted STREQUAL text)
    file(WRITE "${header}" "${rooted}")
  endif()
endforeach()
