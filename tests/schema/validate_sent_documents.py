"""Boots boards with qor-emu and validates every document sent against the schemas.

Usage: validate_sent_documents.py QOR_EMU [BOARD_OR_FOLDER ...]

The built-in board is booted first (no --board), then every board file
given, and every *.json in every folder given. Each file qor-emu writes as
sent ("push_BiosBeforeBoot.json", "push_FlashInfo.json" and their numbered
repeats) must pass the checks of document_schema.py. Exit status 0 when all
do and at least one inventory document was checked.
"""
import glob
import os
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from document_schema import DocumentChecker  # noqa: E402


def boards_from(arguments):
    boards = [None]  # the built-in board
    for argument in arguments:
        if os.path.isdir(argument):
            boards += sorted(glob.glob(os.path.join(argument, "*.json")))
        else:
            boards.append(argument)
    return boards


def main(arguments):
    if len(arguments) < 1:
        print(__doc__)
        return 2
    qor_emu, boards = arguments[0], boards_from(arguments[1:])
    checker = DocumentChecker()
    failures, inventories, checked = 0, 0, 0
    for board in boards:
        name = board or "(built-in board)"
        with tempfile.TemporaryDirectory(prefix="qor-schema-") as out:
            command = [qor_emu, "--out", out] + (["--board", board] if board else [])
            run = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
            if run.returncode != 0:
                print("FAIL %s: qor-emu exited with %d\n%s" % (name, run.returncode, run.stdout))
                failures += 1
                continue
            sent = sorted(f for f in os.listdir(out) if f.startswith("push_") and f.endswith(".json"))
            for file_name in sent:
                with open(os.path.join(out, file_name), "rb") as handle:
                    errors = checker.sent_file_errors(file_name, handle.read())
                checked += 1
                inventories += file_name.startswith("push_BiosBeforeBoot")
                if errors:
                    failures += 1
                    print("FAIL %s: %s" % (name, file_name))
                    for error in errors:
                        print("    " + error)
                else:
                    print("ok   %s: %s" % (name, file_name))
    print("%d documents checked from %d boards, %d failed" % (checked, len(boards), failures))
    if inventories == 0:
        print("FAIL: no board sent an inventory document")
        return 1
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
