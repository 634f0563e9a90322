"""Boots boards with qor-emu and validates every document sent against the schemas.

Usage: validate_sent_documents.py QOR_EMU [BOARD_OR_FOLDER ...]

The built-in board is booted first (no --board), then every board file
given, and every *.json in every folder given. A board whose first boot
ends in a reset (a customer policy) is booted again, six boots in a row, so
the documents of the boots after its resets are checked too. Each file
qor-emu writes as sent ("push_BiosBeforeBoot.json", "push_FlashInfo.json"
and their numbered repeats) must pass the checks of document_schema.py.
Exit status 0 when all do and at least one inventory document was checked.
"""
import glob
import json
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


BOOTS_AFTER_A_RESET = 6


def ended_in_reset(folder):
    with open(os.path.join(folder, "boot.json"), encoding="utf-8") as handle:
        return json.load(handle).get("reset") is not None


def sent_files(out):
    """Every file sent, in OUT or in its boot-K folders, as (label, path)."""
    folders = [out] + sorted(glob.glob(os.path.join(out, "boot-*")))
    files = []
    for folder in folders:
        for file_name in sorted(os.listdir(folder)):
            if file_name.startswith("push_") and file_name.endswith(".json"):
                label = os.path.relpath(os.path.join(folder, file_name), out)
                files.append((label, os.path.join(folder, file_name)))
    return files


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
            if ended_in_reset(out):
                run = subprocess.run(command + ["--boots", str(BOOTS_AFTER_A_RESET)], stdout=subprocess.PIPE,
                                     stderr=subprocess.STDOUT, text=True)
                if run.returncode != 0:
                    print("FAIL %s: qor-emu --boots exited with %d\n%s" % (name, run.returncode, run.stdout))
                    failures += 1
                    continue
            for label, path in sent_files(out):
                file_name = os.path.basename(path)
                with open(path, "rb") as handle:
                    errors = checker.sent_file_errors(file_name, handle.read())
                checked += 1
                inventories += file_name.startswith("push_BiosBeforeBoot")
                if errors:
                    failures += 1
                    print("FAIL %s: %s" % (name, label))
                    for error in errors:
                        print("    " + error)
                else:
                    print("ok   %s: %s" % (name, label))
    print("%d documents checked from %d boards, %d failed" % (checked, len(boards), failures))
    if inventories == 0:
        print("FAIL: no board sent an inventory document")
        return 1
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
