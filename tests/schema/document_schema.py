"""Checks a sent document against its JSON Schema (schemas/), with a real validator.

Beyond what a schema can say, the checks here read the document's text
itself: numbers are plain non-negative integers (no sign, fraction or
exponent), the sections come in registry order, and no object repeats a key
except IioInfo, whose "CPU" and "PortInfo" members appear once per socket.
Python's json keeps the last of repeated keys, so the schema sees socket 1
there; each (CPU, PortInfo) pair is validated on its own as well.
"""
import json
import os

try:
    from jsonschema import Draft202012Validator
except ImportError:
    raise SystemExit("The JSON Schema validator is missing: install the Debian package python3-jsonschema "
                     "(scripts/install-deps.sh does).")

SCHEMA_DIR = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "schemas")
INVENTORY_NAME = "push_BiosBeforeBoot.json"
FLASH_NAME = "push_FlashInfo.json"
SECTION_ORDER = ["BiosVersion", "PchInfo", "CpuInfo", "DimmResultInfo", "DimmInfo", "VmdInfo", "TpmInfo",
                 "OnBoardSataInfo", "PcieDevice", "PcieTopology", "MiscInfo", "PcieResource", "MemoryMap",
                 "IioInfo"]
IIO_MEMBERS = ["CPU", "PortInfo", "CPU", "PortInfo"]


class Members(list):
    """An object's members as (key, value) pairs, in document order, repeats kept."""


def _reject_number(text):
    raise ValueError("number %s is not a plain integer" % text)


def _plain_integer(text):
    if text.startswith("-"):
        raise ValueError("number %s is negative" % text)
    return int(text)


def load_members(text):
    """Parses text into nested Members (objects) and lists; raises ValueError on a wrong number form."""
    return json.loads(text, object_pairs_hook=Members, parse_float=_reject_number, parse_int=_plain_integer,
                      parse_constant=_reject_number)


def last_key_wins(value):
    """What a parser that keeps the last of repeated keys sees."""
    if isinstance(value, Members):
        return {key: last_key_wins(item) for key, item in value}
    if isinstance(value, list):
        return [last_key_wins(item) for item in value]
    return value


def dump_members(value):
    """Writes Members back as JSON text, repeated keys included."""
    if isinstance(value, Members):
        return "{" + ",".join(json.dumps(key) + ":" + dump_members(item) for key, item in value) + "}"
    if isinstance(value, list):
        return "[" + ",".join(dump_members(item) for item in value) + "]"
    return json.dumps(value)


def _repeated_keys(value, path, found):
    if isinstance(value, Members):
        keys = [key for key, _ in value]
        if len(set(keys)) != len(keys):
            found.append((path, keys))
        for key, item in value:
            _repeated_keys(item, path + (key,), found)
    elif isinstance(value, list):
        for index, item in enumerate(value):
            _repeated_keys(item, path + (index,), found)
    return found


def load_schema(name):
    with open(os.path.join(SCHEMA_DIR, name), encoding="utf-8") as handle:
        schema = json.load(handle)
    Draft202012Validator.check_schema(schema)
    return schema


class DocumentChecker:
    def __init__(self):
        self.inventory_schema = load_schema("push_BiosBeforeBoot.schema.json")
        self.flash_schema = load_schema("push_FlashInfo.schema.json")
        self.inventory = Draft202012Validator(self.inventory_schema)
        self.flash = Draft202012Validator(self.flash_schema)
        # One (CPU, PortInfo) pair of IioInfo, against the same definitions.
        self.iio_socket = Draft202012Validator({"$ref": "#/$defs/IioSocket",
                                                "$defs": self.inventory_schema["$defs"]})

    @staticmethod
    def _schema_errors(validator, instance, where=""):
        """One line per failed member, naming the deepest cause: a section that fits neither "{}" nor its
        filled form reports why the filled form does not fit."""
        def cause(error):
            while error.context:
                error = max(error.context, key=lambda e: (len(e.absolute_path), e.validator != "maxProperties"))
            return error
        lines = []
        for error in sorted(validator.iter_errors(instance), key=lambda e: list(map(str, e.absolute_path))):
            error = cause(error)
            lines.append("%s%s: %s" % (where, "/".join(str(p) for p in error.absolute_path) or "(document)",
                                       error.message[:300]))
        return lines

    @staticmethod
    def _object_members(text, expected_keys, errors):
        """The parsed object, or None with the reason added to errors; its keys must be expected_keys."""
        try:
            tree = load_members(text)
        except ValueError as error:
            errors.append("not a valid document: %s" % error)
            return None
        if not isinstance(tree, Members):
            errors.append("the document is not an object")
            return None
        keys = [key for key, _ in tree]
        if keys != expected_keys:
            errors.append("members %s, expected %s in that order" % (keys, expected_keys))
        return tree

    def inventory_errors(self, text):
        """Every way text fails to be a valid inventory document; empty when it is one."""
        errors = []
        tree = self._object_members(text, SECTION_ORDER, errors)
        if tree is None:
            return errors
        for path, repeated in _repeated_keys(tree, (), []):
            if path == ("IioInfo",) and repeated == IIO_MEMBERS:
                continue
            errors.append("%s: repeated keys %s" % ("/".join(str(p) for p in path) or "(document)", repeated))
        errors += self._schema_errors(self.inventory, last_key_wins(tree))
        iio = dict((key, value) for key, value in tree).get("IioInfo")
        if isinstance(iio, Members) and len(iio) != 0:
            if [key for key, _ in iio] != IIO_MEMBERS:
                errors.append("IioInfo: members %s, expected %s" % ([key for key, _ in iio], IIO_MEMBERS))
            else:
                for socket in (0, 1):
                    pair = last_key_wins(Members(iio[2 * socket:2 * socket + 2]))
                    if pair.get("CPU") != socket:
                        errors.append("IioInfo: pair %d names CPU %r" % (socket, pair.get("CPU")))
                    errors += self._schema_errors(self.iio_socket, pair, "IioInfo pair %d: " % socket)
        return errors

    def flash_errors(self, text):
        """Every way text fails to be a valid flash document; empty when it is one."""
        errors = []
        tree = self._object_members(text, ["Bios Rom Size", "Flash ID"], errors)
        if tree is None:
            return errors
        return errors + self._schema_errors(self.flash, last_key_wins(tree))

    def sent_file_errors(self, file_name, data):
        """Checks one file as sent (bytes): its text form and its document."""
        try:
            text = data.decode("utf-8")
        except UnicodeDecodeError as error:
            return ["not UTF-8 text: %s" % error]
        if file_name.startswith("push_BiosBeforeBoot"):
            errors = [] if text.endswith("}\n") else ["the document does not end in one line feed"]
            return errors + self.inventory_errors(text)
        if file_name.startswith("push_FlashInfo"):
            errors = [] if text.endswith("}") else ["the flash document ends in %r" % text[-1:]]
            return errors + self.flash_errors(text)
        return ["%s is not a document the driver sends" % file_name]


def main(paths):
    """Checks documents saved from a boot; a file's name says which document it is."""
    if not paths:
        print("usage: document_schema.py push_BiosBeforeBoot.json [push_FlashInfo.json ...]")
        return 2
    checker = DocumentChecker()
    failed = 0
    for path in paths:
        with open(path, "rb") as handle:
            errors = checker.sent_file_errors(os.path.basename(path), handle.read())
        print("%s: %s" % (path, "valid" if not errors else "INVALID"))
        for error in errors:
            print("    " + error)
        failed += bool(errors)
    return 1 if failed else 0


if __name__ == "__main__":
    import sys
    sys.exit(main(sys.argv[1:]))
