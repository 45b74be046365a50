# The ZIP container's reader: an archive's bytes opened and every item read to its end.
opcvk_fuzz_target(zip_archive LIBS opcmodel opcmodel_internal_headers)
