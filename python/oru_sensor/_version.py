"""The library's version, duGetLibraryVersion, as oru_sensor.__version__."""

import ctypes
import os
import subprocess
import sys

from . import _library

_version = None  # written once, by the first thread that asks; the same text for every caller

# Loads the library in a process of its own: here, loading it would bind it
# to USB hardware or to the virtual sensors before connect() chose.
_CHILD = """if True:
    import ctypes
    from oru_sensor import _library
    lib, _ = _library._first(_library._candidates_library(), ctypes.RTLD_LOCAL)
    lib.duGetLibraryVersion.restype = ctypes.c_char_p
    print(lib.duGetLibraryVersion().decode())"""


def library_version():
    global _version
    if _version is None:
        if _library._loaded is not None:
            fn = _library._loaded.duGetLibraryVersion
            fn.argtypes, fn.restype = [], ctypes.c_char_p
            _version = fn().decode()
        else:
            package_parent = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
            env = dict(os.environ, PYTHONPATH=os.pathsep.join(filter(None, [package_parent,
                                                                           os.environ.get("PYTHONPATH")])))
            child = subprocess.run([sys.executable, "-c", _CHILD], capture_output=True, text=True, env=env,
                                   timeout=30)
            if child.returncode != 0:
                raise OSError("cannot load liboru_device for its version: %s"
                              % (child.stderr.strip().splitlines() or ["no output"])[-1])
            _version = child.stdout.strip()
    return _version
