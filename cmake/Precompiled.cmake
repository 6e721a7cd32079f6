# Headers that nearly every source file includes, compiled once for all targets. A target takes one of the sets with
# target_precompile_headers(TARGET REUSE_FROM SET). Every file includes what it uses nevertheless: the lint reads each
# without these sets.
function(precompiled set)
  file(CONFIGURE OUTPUT precompiled/${set}.cc CONTENT "")  # a library needs a source file
  add_library(${set} OBJECT ${PROJECT_BINARY_DIR}/precompiled/${set}.cc)
  target_precompile_headers(${set} PRIVATE ${ARGN})
endfunction()

set(standard <algorithm> <array> <charconv> <cmath> <functional> <map> <memory> <optional> <set> <span> <sstream> <string>
  <string_view> <utility> <variant> <vector>)
precompiled(precompiled_standard ${standard})

# The model includes all of platform/kel that it is made of.
file(GLOB schemas CONFIGURE_DEPENDS platform/model/schema/*.toml)
list(TRANSFORM schemas REPLACE ".*/(.*)\\.toml" "<platform/model/\\1.h>")
set(model <filesystem> <fstream> ${standard} <platform/kel/Child.h> <platform/kel/Clock.h> <platform/kel/FileDescriptor.h>
  <platform/kel/Format.h> <platform/kel/Log.h> ${schemas})
precompiled(precompiled_model ${model})
add_dependencies(precompiled_model model_sources)

if(BUILD_TESTS OR BUILD_BENCHMARKS)
  find_package(GTest REQUIRED)
  precompiled(precompiled_tests ${model} <gmock/gmock.h> <gtest/gtest.h>)
  target_link_libraries(precompiled_tests PRIVATE GTest::gmock GTest::gtest)  # for their definitions
  add_dependencies(precompiled_tests model_sources)
endif()
