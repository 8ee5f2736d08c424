# Warnings and sanitizers shared by every target of the project.
add_library(telvix_warnings INTERFACE)
target_compile_options(telvix_warnings INTERFACE
  $<$<CXX_COMPILER_ID:GNU,Clang>:-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                                 -Wcast-align -Woverloaded-virtual -Wformat=2>)

add_library(telvix_qt_defines INTERFACE)
target_compile_definitions(telvix_qt_defines INTERFACE
  QT_NO_FOREACH QT_NO_KEYWORDS QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
  QT_DEPRECATED_WARNINGS)

# Every test, tool and benchmark links the whole library archive: with mold a
# change to one library source relinks them all in seconds instead of minutes.
find_program(TELVIX_MOLD mold)
if(TELVIX_MOLD AND CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  add_link_options(-fuse-ld=mold)
endif()

if(TELVIX_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()
if(TELVIX_BUILD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "TELVIX_BUILD_FUZZ needs clang (CC=clang-14 CXX=clang++-14)")
  endif()
  # Everything is instrumented for coverage and checked; only the fuzz
  # programs link the fuzzer's own main.
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()
if(TELVIX_TSAN)
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()

# Qt targets get moc; plain C targets (libgsm users, fuzzers) must not.
function(telvix_enable_qt target)
  set_target_properties(${target} PROPERTIES AUTOMOC ON)
  target_link_libraries(${target} PRIVATE telvix_warnings telvix_qt_defines)
endfunction()
