"""Prints where this interpreter finds packages installed under PREFIX,
relative to PREFIX (so that `cmake --install --prefix` still applies)."""
import os
import sys
import sysconfig

prefix = os.path.normpath(sys.argv[1])
for entry in sys.path:
    if entry.startswith(prefix + "/lib/") and entry.endswith(("dist-packages", "site-packages")):
        path = entry
        break
else:
    path = sysconfig.get_path("purelib", vars={"base": prefix, "platbase": prefix})
print(os.path.relpath(path, prefix) if path.startswith(prefix + "/") else path)
