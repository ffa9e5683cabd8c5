#!/bin/bash
# The module installed as users install it, each way into a fresh virtual
# environment made with Debian's site packages (numpy): pip from the source
# folder, offline and without build isolation, and cmake --install of the
# build tree with the environment as prefix. Each must import from the
# environment, not from the build tree, and round-trip a view.
# Usage: check_install.sh <python> <source dir> <build dir> <work dir>
set -euo pipefail
python=$1 source=$2 build=$3 work=$4
rm -rf "$work"
mkdir -p "$work"

check() {
    (cd "$work" && env -u PYTHONPATH "$1/bin/python" - "$1" <<'PY'
import os, sys
import numpy as np
import grabsystem
import grabsystem.batch, grabsystem.dask  # packaged beside the extension
prefix = os.path.realpath(sys.argv[1])
assert os.path.realpath(grabsystem.__file__).startswith(prefix + os.sep), grabsystem.__file__
sin = np.arange(4 * 8 * 6, dtype=np.uint8).reshape(4, 8, 6)
grabsystem.write_arm_view("v.armraw", 0, sin, sin[:1], [0], (1, 2, 2))
assert np.array_equal(grabsystem.read_arm_view("v.armraw").sin, sin)
print("ok:", os.path.dirname(grabsystem.__file__))
PY
    )
}

"$python" -m venv --system-site-packages "$work/pip"
GRABSYS_CMAKE_BUILD_DIR="$build/pip-build" "$work/pip/bin/python" -m pip install -q --no-index --no-build-isolation \
    "$source/python"
check "$work/pip"
rm -rf "$source/python/build" "$source"/python/*.egg-info

"$python" -m venv --system-site-packages "$work/cmake"
cmake --install "$build" --prefix "$work/cmake" >/dev/null
check "$work/cmake"
