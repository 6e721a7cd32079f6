# What the release build does so that a fault in it is harder to exploit. The package test reads all of it from the programs.
add_library(hardening INTERFACE)
target_compile_options(hardening INTERFACE -fstack-protector-strong -fstack-clash-protection -U_FORTIFY_SOURCE
  -D_FORTIFY_SOURCE=2 -D_GLIBCXX_ASSERTIONS)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|i[3-6]86)$")
  target_compile_options(hardening INTERFACE -fcf-protection)
endif()
# What the loader has filled in is read-only afterwards, so it fills in everything at the start.
target_link_options(hardening INTERFACE -Wl,-z,relro -Wl,-z,now)
link_libraries($<$<CONFIG:Release>:hardening>)
