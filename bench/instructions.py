"""Counts instructions inside the namespaces that instructions.sh makes. Run instructions.sh."""
import os
import re
import signal
import subprocess
import tempfile
import time

import compare

FEW, MANY = 2000, 12000


def count(folder, lines):
    """Returns the instructions of a child that starts, logs this number of lines, and ends."""
    command = ["valgrind", "--tool=callgrind", "--trace-children=yes", f"--callgrind-out-file={folder}/{lines}.%p",
               os.path.abspath("build/syslog")]
    row = compare.Row("syslog", command, "call", "11001", "")
    process = row.start(folder)
    row.load(lines, compare.admit_peer())
    child = compare.tree(process.pid)[-1]
    os.kill(child, signal.SIGTERM)
    time.sleep(2)  # callgrind writes its file
    compare.stop(process)
    with open(f"{folder}/{lines}.{child}") as counts:
        return int(re.search(r"^(?:summary|totals): (\d+)", counts.read(), re.MULTILINE).group(1))


def main():
    with tempfile.TemporaryDirectory() as folder:
        compare.make_private(folder)
        try:
            few, many = count(folder, FEW), count(folder, MANY)
        finally:
            subprocess.run(["umount", "-l", "/dev", folder], check=False)
    print(f"{(many - few) / (MANY - FEW):,.0f} instructions per line")


if __name__ == "__main__":
    main()
