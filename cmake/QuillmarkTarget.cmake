# quillmark_target(<target>): the language level, warnings, hardening and instrumentation of every target of ours.
# Applied PRIVATE, so that nothing of it reaches those who link the target.
function(quillmark_target target)
  target_compile_features(${target} PRIVATE cxx_std_20)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF POSITION_INDEPENDENT_CODE ON)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Wshadow)

  target_compile_options(${target} PRIVATE -fstack-protector-strong $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now,-z,noexecstack)

  if(QM_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${QM_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${QM_SANITIZE})
  endif()
  if(QM_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage -O0)
    target_link_options(${target} PRIVATE --coverage)
  endif()
endfunction()
