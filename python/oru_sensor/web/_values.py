"""Checks of the values a client sends: whole numbers in ASCII digits within
a range, JSON bodies of flat objects. Every refusal is a ValueError whose
text is one line for the client."""

import json
import re

DIGITS = re.compile(r"[0-9]{1,9}")  # ASCII only: str.isdigit() would take "٣", int() would take "1_0"
DECIMAL = re.compile(r"[0-9]{1,9}(\.[0-9]{1,9})?")
MAX_DEPTH = 2                       # an object of scalars; deeper bodies are refused before parsing


class BadValue(ValueError):
    """A value that cannot be used; its text says why, in one line."""


def whole_number(value, name, lo, hi):
    """`value` (a JSON integer or a string of ASCII digits) as an int in lo..hi."""
    if isinstance(value, bool) or not isinstance(value, (int, str)):
        raise BadValue("%s must be a whole number %d..%d" % (name, lo, hi))
    if isinstance(value, str):
        if not DIGITS.fullmatch(value):
            raise BadValue("%s must be a whole number %d..%d in digits 0-9" % (name, lo, hi))
        value = int(value)
    if not lo <= value <= hi:
        raise BadValue("%s must be %d..%d, got %d" % (name, lo, hi, value))
    return value


def decimal_number(text, name, lo, hi):
    """`text` (ASCII digits with an optional fraction) as a float in lo..hi."""
    if not DECIMAL.fullmatch(text):
        raise BadValue("%s must be a number in digits 0-9, got %r" % (name, text))
    value = float(text)
    if not lo <= value <= hi:
        raise BadValue("%s must be %g..%g, got %g" % (name, lo, hi, value))
    return value


def flag(value, name):
    if not isinstance(value, bool):
        raise BadValue("%s must be true or false" % name)
    return value


def nesting_depth(text):
    """Deepest nesting of JSON arrays and objects in `text`, strings skipped."""
    depth = deepest = 0
    in_string = escaped = False
    for ch in text:
        if in_string:
            if escaped:
                escaped = False
            elif ch == "\\":
                escaped = True
            elif ch == '"':
                in_string = False
        elif ch == '"':
            in_string = True
        elif ch in "[{":
            depth += 1
            deepest = max(deepest, depth)
        elif ch in "]}":
            depth -= 1
    return deepest


def json_object(body):
    """The JSON object in `body` (bytes; empty means {})."""
    try:
        text = body.decode("utf-8") if body else "{}"
    except UnicodeDecodeError:
        raise BadValue("the body is not UTF-8") from None
    if nesting_depth(text) > MAX_DEPTH:
        raise BadValue("the body nests deeper than %d levels" % MAX_DEPTH)
    try:
        obj = json.loads(text)
    except ValueError:
        raise BadValue("the body is not JSON") from None
    if not isinstance(obj, dict):
        raise BadValue("the body must be a JSON object")
    return obj
