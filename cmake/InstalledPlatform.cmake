# An installed platform: its headers and libraries are found along CMAKE_PREFIX_PATH. Only with QOR_PLATFORM=installed.
# Creates the targets of platform/ and runtime/ that src/ uses.

set(QOR_PLATFORM_LIBRARIES "tamb_runtime;qor_sockets;qor_utils;qor_service_schema" CACHE STRING
  "The platform's libraries, by name or path: framework, message sockets, utilities, and the service's messages")

add_library(platform INTERFACE)
target_link_libraries(platform INTERFACE protobuf::libprotobuf)
foreach(header tamb/IEngineFrontEnd.h qor/socket/Socket.h qor/utils/MessageFormatter.h qor/proto/ApiService.pb.h)
  string(MAKE_C_IDENTIFIER ${header} name)
  find_path(QOR_PLATFORM_${name} ${header} REQUIRED)
  mark_as_advanced(QOR_PLATFORM_${name})
  target_include_directories(platform SYSTEM INTERFACE ${QOR_PLATFORM_${name}})
endforeach()

add_library(platform_libraries INTERFACE)
foreach(library IN LISTS QOR_PLATFORM_LIBRARIES)
  string(MAKE_C_IDENTIFIER ${library} name)
  find_library(QOR_PLATFORM_LIBRARY_${name} ${library} REQUIRED)
  mark_as_advanced(QOR_PLATFORM_LIBRARY_${name})
  target_link_libraries(platform_libraries INTERFACE ${QOR_PLATFORM_LIBRARY_${name}})
endforeach()

# Its headers belong to the platform's, and its library to the platform's libraries.
add_library(qor_service_schema INTERFACE)
