# A layer is one static library made of every .cpp below src/<Layer>.
# Headers are included as "Layer/Name.h" from src/.
function(halvane_layer layer)
  cmake_parse_arguments(L "" "" "DEPS" ${ARGN})
  string(TOLOWER ${layer} lower)
  set(target halvane_${lower})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/src/${layer}/*.cpp
    ${PROJECT_SOURCE_DIR}/src/${layer}/*.h)
  list(FILTER sources EXCLUDE REGEX ".*/main\\.cpp$")
  set(cpp ${sources})
  list(FILTER cpp INCLUDE REGEX ".*\\.cpp$")
  if(cpp)
    add_library(${target} STATIC ${sources})
    target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${target} PUBLIC ${L_DEPS})
  else()
    add_library(${target} INTERFACE)
    target_include_directories(${target} INTERFACE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${target} INTERFACE ${L_DEPS})
  endif()
  add_library(Halvane::${layer} ALIAS ${target})
endfunction()

# Tests of a layer: every .cpp in tests/<Layer> becomes one test program.
function(halvane_layer_tests layer)
  cmake_parse_arguments(T "" "" "DEPS" ${ARGN})
  string(TOLOWER ${layer} lower)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/${layer}/*.cpp)
  if(NOT sources)
    return()
  endif()
  set(target test_${lower})
  add_executable(${target} ${sources})
  target_link_libraries(${target} PRIVATE Halvane::${layer} halvane_testsupport ${T_DEPS}
    GTest::gtest GTest::gmock GTest::gtest_main)
  target_compile_definitions(${target} PRIVATE
    HALVANE_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
    HALVANE_BINARY_DIR="${PROJECT_BINARY_DIR}")
  gtest_discover_tests(${target}
    DISCOVERY_TIMEOUT 60
    PROPERTIES ENVIRONMENT "QT_QPA_PLATFORM=offscreen;OMP_THREAD_LIMIT=1"
               TIMEOUT 300)
endfunction()
