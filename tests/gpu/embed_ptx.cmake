# Writes the PTX that nvcc made into a header, as a string the driver loads.
file(READ "${IN}" ptx)
file(WRITE "${OUT}" "// Made from byte_sum.cu by nvcc -ptx when the tests were configured.\nstatic const char kByteSumPtx[] = R\"PTX(${ptx})PTX\";\n")
