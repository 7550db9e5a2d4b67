# Compiler flags of all our targets, and the two functions that declare them.

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()

add_library(onvifcam_flags INTERFACE)
target_compile_options(onvifcam_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
                       -fno-omit-frame-pointer)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(onvifcam_flags INTERFACE -Wthread-safety)
endif()
target_include_directories(onvifcam_flags INTERFACE ${CMAKE_SOURCE_DIR})
target_link_libraries(onvifcam_flags INTERFACE Threads::Threads)

if(ONVIFCAM_SANITIZE)
  add_compile_options(-fsanitize=${ONVIFCAM_SANITIZE} -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${ONVIFCAM_SANITIZE})
endif()

# onvifcam_room(NAME DEPENDS ... LIBS ...): the static library of one folder, from every source file in it.
function(onvifcam_room name)
  cmake_parse_arguments(ARG "" "" "DEPENDS;LIBS" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(sources)
    add_library(${name} STATIC ${sources})
    target_link_libraries(${name} PUBLIC onvifcam_flags ${ARG_DEPENDS} PRIVATE ${ARG_LIBS})
    if(ONVIFCAM_FUZZ)
      target_compile_options(${name} PRIVATE -fsanitize=fuzzer-no-link)
    endif()
  else()
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE onvifcam_flags ${ARG_DEPENDS})
  endif()
endfunction()
