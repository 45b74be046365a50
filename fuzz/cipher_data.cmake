# The cipher data part: the reader of the subsystem's own objects, instrumented like the
# contract libraries.
target_compile_options(opcvk_cipherdata_objects PRIVATE
                       -fsanitize=fuzzer-no-link,${OPCVK_FUZZ_SANITIZERS}
                       ${OPCVK_FUZZ_COMPILE_OPTIONS})
opcvk_fuzz_target(cipher_data LIBS opcvk_cipherdata)
