# The decryption of encrypted parts: the encryption subsystem's objects, instrumented like the
# contract libraries.
target_compile_options(opcvk_encryption_objects PRIVATE
                       -fsanitize=fuzzer-no-link,${OPCVK_FUZZ_SANITIZERS}
                       ${OPCVK_FUZZ_COMPILE_OPTIONS})
opcvk_fuzz_target(encrypted_content LIBS opcvk_encryption)
