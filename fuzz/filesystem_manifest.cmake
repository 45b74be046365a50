# The manifest of a package file system, both of its forms: the reader of the subsystem's
# own objects, instrumented like the contract libraries.
target_compile_options(opcvk_filesystem_objects PRIVATE
                       -fsanitize=fuzzer-no-link,${OPCVK_FUZZ_SANITIZERS}
                       ${OPCVK_FUZZ_COMPILE_OPTIONS})
opcvk_fuzz_target(filesystem_manifest LIBS opcvk_filesystem)
