#!/usr/bin/env python3
"""Runs the tests under systemd for CTest, which knows 77 as skipped."""

import os
import shutil
import subprocess
import sys
from pathlib import Path

missing = [name for name in ("systemd-nspawn", "nsenter", "node") if shutil.which(name) is None]
if os.getuid() != 0 or missing or not os.path.exists("/dev/fuse"):
    print("SKIPPED: needs root, /dev/fuse and " + (", ".join(missing) or "nothing else"))
    sys.exit(77)
here = Path(__file__).resolve().parent
sys.exit(subprocess.run([sys.executable, "-m", "pytest", "-p", "no:cacheprovider", "-q", "-ra", "--tb=short", "--durations=5",
                         "--rootdir", here, "--confcutdir", here, here / "test_systemd.py"], check=False).returncode)
