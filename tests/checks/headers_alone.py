"""Compiles each installed header by itself: the precompiled header of our own build hides what a
header forgets to include.

    headers_alone.py COMPILER SOURCE_DIR [FLAGS...]
"""
import concurrent.futures
import os
import pathlib
import subprocess
import sys

compiler, source, *flags = sys.argv[1:]


def compiled(header):
    run = subprocess.run([compiler, "-std=c++20", "-fsyntax-only", "-x", "c++", f"-I{source}", *flags, "-"],
                         input=f'#include "{header}"\n', capture_output=True, text=True)
    return header, run.returncode, run.stderr


headers = sorted(path.relative_to(source) for path in pathlib.Path(source).rglob("*.h"))
failed = 0
with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
    for header, code, errors in pool.map(compiled, headers):
        if code:
            failed += 1
            print(f"{header} does not compile alone:\n{errors[:2000]}")
print(f"{len(headers)} headers, {failed} not complete")
sys.exit(bool(failed) or not headers)
