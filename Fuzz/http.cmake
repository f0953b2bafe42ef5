# Fuzz targets of the HTTP server. Built by clang with -fsanitize=fuzzer beside the sanitizers of the build.
foreach(target FormsFuzz RequestFuzz)
  hub_program(${target} SOURCES ${target}.cpp LINK noxnet)
  target_compile_options(${target} PRIVATE -fsanitize=fuzzer)
  target_link_options(${target} PRIVATE -fsanitize=fuzzer)
endforeach()
