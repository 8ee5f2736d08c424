find_package(Qt5 5.15 REQUIRED COMPONENTS Test)

# telvix_add_test(<name> SOURCES ... [LIBS ...] [LONG] [NO_SUPPORT] [TIMEOUT s] [LABELS ...])
# Tests marked LONG wait on real timers (15-45 s) and carry the label "long";
# everything else carries "unit"; LABELS (such as "faults" or "soak") replaces
# either. CI runs all but the soak.
function(telvix_add_test name)
  cmake_parse_arguments(T "LONG;NO_SUPPORT" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  telvix_enable_qt(${name})
  if(T_NO_SUPPORT)
    target_link_libraries(${name} PRIVATE Qt5::Test ${T_LIBS})
  else()
    target_link_libraries(${name} PRIVATE telvix_testsupport ${T_LIBS})
  endif()
  add_test(NAME ${name} COMMAND ${name})
  if(T_LONG)
    set(_labels long)
    set(_timeout 240)
  else()
    set(_labels unit)
    set(_timeout 120)
  endif()
  if(T_LABELS)
    set(_labels ${T_LABELS})
  endif()
  if(T_TIMEOUT)
    set(_timeout ${T_TIMEOUT})
  endif()
  set_tests_properties(${name} PROPERTIES LABELS "${_labels}" TIMEOUT ${_timeout}
    ENVIRONMENT "QT_QPA_PLATFORM=offscreen;QT_LOGGING_TO_CONSOLE=1")
endfunction()

