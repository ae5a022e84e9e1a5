# Generated protobuf classes. They are built without our warnings, and always with NDEBUG: the schemas' string fields
# contain arbitrary bytes, and a debug build of the classes would complain that they are not UTF-8.

# qor_add_schemas(TARGET TYPE ROOT SCHEMA...): a library of that type with the classes of the schemas, whose
# paths are relative to ROOT and to the include directory.
function(qor_add_schemas target type root)
  set(outputDirectory ${CMAKE_CURRENT_BINARY_DIR}/generated)
  file(MAKE_DIRECTORY ${outputDirectory})
  add_library(${target} ${type})
  foreach(schema IN LISTS ARGN)
    string(REGEX REPLACE "\\.proto$" "" stem ${schema})
    add_custom_command(
      OUTPUT ${outputDirectory}/${stem}.pb.cc ${outputDirectory}/${stem}.pb.h
      COMMAND protobuf::protoc --proto_path=${root} --cpp_out=${outputDirectory} ${root}/${schema}
      DEPENDS ${root}/${schema}
      COMMENT "Generating ${stem}.pb.h")
    target_sources(${target} PRIVATE ${outputDirectory}/${stem}.pb.cc ${outputDirectory}/${stem}.pb.h)
  endforeach()
  target_compile_options(${target} PRIVATE -w)
  target_compile_definitions(${target} PRIVATE NDEBUG)
  target_include_directories(${target} SYSTEM PUBLIC ${outputDirectory})
  target_link_libraries(${target} PUBLIC protobuf::libprotobuf)
endfunction()
