"""Prints the folder under which this interpreter finds packages installed to a prefix."""
import os
import sys
import sysconfig

prefix = os.path.abspath(sys.argv[1])
for entry in sys.path:
    inside = os.path.relpath(entry, prefix)
    if inside.startswith("lib") and entry.endswith(("site-packages", "dist-packages")):
        print(entry)
        break
else:
    print(sysconfig.get_path("platlib", "posix_prefix" if os.name == "posix" else "nt",
                             vars={"base": prefix, "platbase": prefix}))
