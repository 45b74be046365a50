# The extended core properties: the three part readers and the release information text.
foreach(library IN ITEMS vkrelease_info opcvk_coreproperties_objects opcvk_errors_objects)
  target_compile_options(${library} PRIVATE -fsanitize=fuzzer-no-link,${OPCVK_FUZZ_SANITIZERS}
                                            ${OPCVK_FUZZ_COMPILE_OPTIONS})
endforeach()
target_link_options(vkrelease_info PRIVATE -fsanitize=${OPCVK_FUZZ_SANITIZERS})

opcvk_fuzz_target(core_properties_part LIBS opcvk_coreproperties)
opcvk_fuzz_target(extension_part LIBS opcvk_coreproperties)
opcvk_fuzz_target(release_info_part LIBS opcvk_coreproperties)
# The model too: the target keeps the XML library initialised between inputs.
opcvk_fuzz_target(release_info LIBS vkrelease_info opcmodel)
