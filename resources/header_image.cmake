# The header banner: resources/header.png is the source; at build time a small
# host tool converts it into a C++ array of straight BGRA pixels that is
# compiled into the plug-in. Only the tool links libpng, never the plug-in.
find_package(PNG REQUIRED)

add_executable(png2cpp ${PROJECT_SOURCE_DIR}/tools/png2cpp/png2cpp.cpp)
target_link_libraries(png2cpp PRIVATE PNG::PNG)
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
  COMMAND png2cpp ${TESSELUX_HEADER_PNG} ${TESSELUX_HEADER_CPP} kTesseluxHeaderBGRA 320 17
  DEPENDS png2cpp ${TESSELUX_HEADER_PNG}
  COMMENT "Converting resources/header.png into the header pixel array"
  VERBATIM)

set(TESSELUX_GENERATED_SOURCES ${TESSELUX_HEADER_CPP})
