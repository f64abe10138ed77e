# The fuzz targets proper: everything that they are about is compiled into them, with coverage and sanitizers.
if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  message(FATAL_ERROR "NYX_FUZZ needs clang")
endif()

set(instrumentation -g -O1 -fno-omit-frame-pointer -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all)

# The sources of a target of another directory, by their full names.
function(fuzz_sources_of target result)
  get_target_property(directory ${target} SOURCE_DIR)
  get_target_property(sources ${target} SOURCES)
  list(TRANSFORM sources PREPEND "${directory}/")
  set(${result} ${sources} PARENT_SCOPE)
endfunction()

function(fuzz_add_objects name)
  add_library(${name} OBJECT ${ARGN})
  target_link_libraries(${name} PRIVATE nyx_warnings)
  target_compile_options(${name} PUBLIC ${instrumentation})
endfunction()

fuzz_sources_of(nyx nyx_sources)
fuzz_sources_of(rcode rcode_sources)
fuzz_sources_of(safestr safestr_sources)
fuzz_sources_of(umbra umbra_sources)
fuzz_sources_of(skein skein_sources)
fuzz_sources_of(request_path_parts request_path_sources)
fuzz_sources_of(nyx_test_support support_sources)

# The library on its platform, but for the services that platform_stand_in.cpp is.
list(FILTER umbra_sources EXCLUDE REGEX "/named_[a-z]+\\.cpp$")
fuzz_add_objects(nyx_fuzzed ${nyx_sources} ${rcode_sources} ${safestr_sources} ${umbra_sources} ${support_sources}
  platform_stand_in.cpp)
set(platform "${PROJECT_SOURCE_DIR}/platform")
target_include_directories(nyx_fuzzed PUBLIC "${framework_dir}/include" "${PROJECT_SOURCE_DIR}/tests/support"
  "${platform}/rcode/include" "${platform}/safestr/include" "${platform}/umbra/include" "${platform}/skein/include"
  PRIVATE "${framework_dir}/src" "${platform}/umbra/src")

fuzz_add_objects(skein_fuzzed ${skein_sources} "${tool_dir}/print.cpp")
target_include_directories(skein_fuzzed PUBLIC "${platform}/skein/include" "${tool_dir}" PRIVATE "${platform}/skein/src")
target_link_libraries(skein_fuzzed PUBLIC nlohmann_json::nlohmann_json)

fuzz_add_objects(request_path_fuzzed ${request_path_sources})
target_include_directories(request_path_fuzzed PUBLIC "${PROJECT_SOURCE_DIR}/examples/request_path"
  "${PROJECT_SOURCE_DIR}/examples")
target_link_libraries(request_path_fuzzed PUBLIC nyx_fuzzed LibXml2::LibXml2)

foreach(target ${targets})
  add_executable(fuzz_${target} ${target}_fuzz.cpp)
  target_link_libraries(fuzz_${target} PRIVATE nyx_warnings)
  target_link_options(fuzz_${target} PRIVATE -fsanitize=fuzzer,address,undefined)
endforeach()
foreach(target ${codec_targets} ${helper_targets})
  target_link_libraries(fuzz_${target} PRIVATE nyx_fuzzed)
endforeach()
target_link_libraries(fuzz_wire PRIVATE request_path_fuzzed)
target_link_libraries(fuzz_skein_reader PRIVATE skein_fuzzed)
foreach(target ${message_targets})
  target_sources(fuzz_${target} PRIVATE wire_mutator.cpp)
endforeach()
add_custom_target(fuzz_targets)
foreach(target ${targets})
  add_dependencies(fuzz_targets fuzz_${target})
endforeach()
