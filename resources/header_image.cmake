# The header banner: resources/header.png is the source; at build time a small
# host tool converts it into a C++ array of straight BGRA pixels that is
# compiled into the plug-in. Only the tool links libpng, never the plug-in.
if(CMAKE_CROSSCOMPILING)
  # The tool runs on the build machine: compiled here with the machine's own
  # compiler and libpng, whatever the plug-in is built for.
  set(png2cpp ${CMAKE_BINARY_DIR}/host-tools/png2cpp)
  set(png2cpp_source ${PROJECT_SOURCE_DIR}/tools/png2cpp/png2cpp.cpp)
  if(NOT EXISTS ${png2cpp} OR ${png2cpp_source} IS_NEWER_THAN ${png2cpp})
    file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/host-tools)
    execute_process(COMMAND c++ -std=c++17 -O1 ${png2cpp_source} -lpng -o ${png2cpp}
                    RESULT_VARIABLE png2cpp_failed)
    if(png2cpp_failed)
      message(FATAL_ERROR "could not build the host tool png2cpp")
    endif()
  endif()
  set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${png2cpp_source})
else()
  find_package(PNG REQUIRED)
  add_executable(png2cpp ${PROJECT_SOURCE_DIR}/tools/png2cpp/png2cpp.cpp)
  target_link_libraries(png2cpp PRIVATE PNG::PNG)
  set(png2cpp png2cpp)
endif()
if(APPLE)
  # A build-time tool: only the machine's own architecture, whatever the
  # plug-in bundle is built for (the libpng it links has only that one).
  set_target_properties(png2cpp PROPERTIES OSX_ARCHITECTURES ${CMAKE_HOST_SYSTEM_PROCESSOR})
endif()

set(TESSELUX_HEADER_PNG ${PROJECT_SOURCE_DIR}/resources/header.png)
set(TESSELUX_HEADER_CPP ${CMAKE_CURRENT_BINARY_DIR}/generated/header_image.cpp)

add_custom_command(
  OUTPUT ${TESSELUX_HEADER_CPP}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_CURRENT_BINARY_DIR}/generated
  COMMAND ${png2cpp} ${TESSELUX_HEADER_PNG} ${TESSELUX_HEADER_CPP} kTesseluxHeaderBGRA 320 17
  DEPENDS ${png2cpp} ${TESSELUX_HEADER_PNG}
  COMMENT "Converting resources/header.png into the header pixel array"
  VERBATIM)

set(TESSELUX_GENERATED_SOURCES ${TESSELUX_HEADER_CPP})
