# Writes the PTX that nvcc made into a header, as a string the driver loads.
# -DIN=<ptx> -DOUT=<header> -DNAME=<C++ name> -DSOURCE=<.cu file name>
file(READ "${IN}" ptx)
file(WRITE "${OUT}" "// Made from ${SOURCE} by nvcc -ptx when the build was configured.\nstatic const char ${NAME}[] = R\"PTX(${ptx})PTX\";\n")
