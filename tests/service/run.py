#!/usr/bin/env python3
"""Tests the service as it runs on a device: python3 tests/service/run.py --binary build/syslog"""
import argparse
import faulthandler
import os
import sys
import unittest

import namespace

HERE = os.path.dirname(os.path.abspath(__file__))
REPOSITORY = os.path.dirname(os.path.dirname(HERE))
TIME_LIMIT = 280  # seconds for the whole run, far more than it needs


def arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--binary", required=True, help="the service")
    parser.add_argument("--tool", help="the command line tool; default: syslogctl next to the service")
    parser.add_argument("--collectors", help="folder from tools/collectors.sh; default: skips the tests that need it")
    parser.add_argument("-k", metavar="PATTERN", action="append", help="only tests whose name contains PATTERN")
    parser.add_argument("-v", "--verbose", action="store_true")
    return parser.parse_args()


def run(args):
    files = {"syslog": args.binary, "tests": HERE}
    tool = args.tool or os.path.join(os.path.dirname(args.binary), "syslogctl")
    if os.path.exists(tool):
        files["syslogctl"] = tool
    built = os.path.dirname(args.binary)
    for name in ("tests/velk_lines", "examples/log_c", "examples/log_cpp", "examples/event_loop"):
        files[os.path.basename(name)] = os.path.join(built, name)
    for name in ("peer.py", "velk_logging.py", "log.sh", "wire.sh", "network-up.sh"):
        files[name] = os.path.join(REPOSITORY, "examples", name)
    if args.collectors:
        files.update({"collectors": args.collectors, "examples": os.path.join(REPOSITORY, "examples")})
    namespace.prepare(files)
    faulthandler.dump_traceback_later(TIME_LIMIT, exit=True)

    loader = unittest.TestLoader()
    loader.testNamePatterns = [f"*{pattern}*" for pattern in args.k] if args.k else None
    tests = loader.discover(os.path.join(namespace.FILES, "tests"), "test_*.py")
    result = unittest.TextTestRunner(verbosity=2 if args.verbose else 1).run(tests)
    for test, reason in result.skipped:
        print(f"left out: {test.id()}: {reason}")
    if result.testsRun == 0:
        print("run.py: no test matches -k")
    return 0 if result.wasSuccessful() and result.testsRun > 0 else 1


def main():
    args = arguments()
    if not os.access(args.binary, os.X_OK):
        sys.exit(f"run.py: cannot run {args.binary}: build it first")
    try:
        status = namespace.rerun()
        return run(args) if status is None else status
    except namespace.Unavailable as reason:
        print(f"left out: all tests of the running service: {reason}")
        return 0


if __name__ == "__main__":
    sys.exit(main())
