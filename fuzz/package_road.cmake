# The whole road of a package's bytes: open, every part read, the file system loaded, listed
# and extracted into a scratch folder.  Every library on the road is instrumented like the
# contract libraries (options repeated on a target are kept once).
foreach(objects IN ITEMS opcvk_filesystem_objects opcvk_content_objects opcvk_errors_objects)
  target_compile_options(${objects} PRIVATE -fsanitize=fuzzer-no-link,${OPCVK_FUZZ_SANITIZERS}
                                            ${OPCVK_FUZZ_COMPILE_OPTIONS})
endforeach()
opcvk_fuzz_target(package_road LIBS opcvk_filesystem)
