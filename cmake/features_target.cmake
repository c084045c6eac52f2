# SPDX-License-Identifier: BSD-3-Clause
# Compile settings that every target of this project shares. They stay on the targets: an
# embedding project keeps its own flags, and no flag picks a processor (kernels do that at run time).

# features_compile_settings(<target>)
function(features_compile_settings target)
  target_compile_features(${target} PRIVATE cxx_std_20)
  # "emit" and "slots" are ordinary words here.
  target_compile_definitions(${target} PRIVATE QT_NO_KEYWORDS)
  # No contraction: fused multiply-adds round differently from one processor to the next, and
  # results must be the same bits everywhere.
  target_compile_options(${target} PRIVATE
      $<$<COMPILE_LANGUAGE:CXX>:-Wall;-Wextra;-Wconversion;-Wshadow;-ffp-contract=off>
      $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<BOOL:${FEATURES_WARNINGS_AS_ERRORS}>>:-Werror>)
  set_target_properties(${target} PROPERTIES
      CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON POSITION_INDEPENDENT_CODE ON)
  if(FEATURES_SANITIZERS)
    target_compile_options(${target} PRIVATE
        -fsanitize=${FEATURES_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${FEATURES_SANITIZERS})
  endif()
endfunction()

# features_export_only(<shared library> <version script>): exports what the script names and
# nothing else. Hidden visibility does not reach the standard library's templates, which would
# otherwise be exported as weak symbols.
function(features_export_only target version_script)
  target_link_options(${target} PRIVATE "LINKER:--version-script=${version_script}")
  # Sanitized code takes its run-time library from the program.
  if(NOT FEATURES_SANITIZERS AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    target_link_options(${target} PRIVATE "LINKER:--no-undefined")
  endif()
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${version_script})
endfunction()
