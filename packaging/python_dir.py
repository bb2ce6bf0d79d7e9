"""Prints where this interpreter finds packages installed under PREFIX,
relative to PREFIX (so that the install script can join it to the prefix)."""
import os
import sys
import sysconfig

prefix = os.path.normpath(sys.argv[1])
for entry in sys.path:
    if entry.startswith(prefix + "/lib/") and entry.endswith(("dist-packages", "site-packages")):
        path = entry
        break
else:
    # Debian's interpreter installs under its own layout for any prefix.
    scheme = "deb_system" if "deb_system" in sysconfig.get_scheme_names() else None
    path = sysconfig.get_path("purelib", scheme, vars={"base": prefix, "platbase": prefix}) if scheme else \
        sysconfig.get_path("purelib", vars={"base": prefix, "platbase": prefix})
print(os.path.relpath(path, prefix) if path.startswith(prefix + "/") else path)
