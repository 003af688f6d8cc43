"""Which sites may ask, by an administrator's policy for the extension: what in it cannot be understood denies.

The rules are the extension's too, and both are held against the cases in tests/policies.
"""

import ipaddress
import json
import re
import unicodedata
from typing import NamedTuple

LISTS = {
    "allowedOrigins": "it allows nothing, and users are asked about no other site",
    "deniedOrigins": "every site is denied",
}
LARGEST_MINUTES = {"quietMinutes": 60, "longestMinutes": 720}

# Within an entry, before the host is looked at: scheme, star, host, port.
FORM = re.compile(r"(https?)://(\*\.)?(\[[^\]]*\]|[^]\s/?#@:*%\\[]+)(?::([1-9][0-9]{0,4}))?")
LABEL = re.compile(r"[a-z0-9_-]{1,63}")
LONGEST_HOST = 253  # of the names that DNS can hold
# What browsers take for an address in numbers when it is a name's last label.
NUMBER = re.compile(r"[0-9]+|0x[0-9a-f]*")
LETTERS_AND_DIGITS = ("Ll", "Lm", "Lo", "Lt", "Lu", "Mc", "Mn", "Nd")
HTTP_HOSTS = ("localhost", "127.0.0.1")


class Problem(NamedTuple):
    """`entry` is the one in the list of the key; None where the whole value is meant."""

    key: str
    entry: object
    words: str


def problems_in(policy):
    """What in an extension's policy, an object, cannot be understood, in order."""
    for key, value in policy.items():
        if key in LISTS:
            yield from problems_in_list(key, value)
        elif key == "onlyAllowedOrigins":
            if not isinstance(value, bool):
                yield Problem(key, None, f"{key} is neither true nor false, and counts as true")
        elif key in LARGEST_MINUTES:
            largest = LARGEST_MINUTES[key]
            if type(value) not in (int, float) or value not in range(1, largest + 1):
                yield Problem(key, None, f"{key} is no whole number from 1 to {largest}, and counts as 1")
        else:
            yield Problem(key, None, f"{shown(key)} is no key that the extension knows, and changes nothing")


def problems_in_list(key, value):
    if not isinstance(value, list):
        yield Problem(key, None, f"{key} is no list, so that {LISTS[key]}")
        return
    for entry in value:
        why = why_not_understood(entry)
        if why:
            yield Problem(key, entry, f"{shown(entry)} in {key} cannot be understood: {why}; so that {LISTS[key]}")


def shown(value):
    text = json.dumps(value, ensure_ascii=False)
    return text if len(text) <= 100 else f"{text[:100]}… ({len(text)} characters)"


def why_not_understood(entry):
    """Why the entry of a list is neither an origin nor a pattern; None when it is one."""
    if not isinstance(entry, str):
        return "it is no text"
    form = FORM.fullmatch(entry.strip(" \t\n\r\f").lower().removesuffix("/"))
    if not form:
        return "an entry is a scheme, a host and perhaps a port, https://tax.example.org or https://*.example.org, and nothing else"
    scheme, star, host, port = form.groups()
    if port and int(port) > 65535:
        return "ports end with 65535"
    if host.endswith("."):
        return "a name with a dot at its end is another host"
    if star and scheme == "http":
        return "a pattern begins with https://*."
    if scheme == "http" and host not in HTTP_HOSTS:
        return f"it can match nothing, for of http only {' and '.join(HTTP_HOSTS)} may ask"
    if host.startswith("["):
        return None if not star and is_address(ipaddress.IPv6Address, host[1:-1]) else "this is no IPv6 address"
    return why_no_host(ascii_form(host), star)


def why_no_host(host, star):
    """`host` is None when it has no ASCII form; `star` tells whether it stands behind "*."."""
    if not host or len(host) > LONGEST_HOST or not all(is_label(label) for label in host.split(".")):
        return "this is no host"
    if NUMBER.fullmatch(host.rpartition(".")[2]):
        return None if not star and is_address(ipaddress.IPv4Address, host) else "this is no address of four numbers"
    if star and "." not in host:
        return "behind the star there have to be two labels at least, as in https://*.example.org"
    return None


def is_address(kind, text):
    try:
        return not getattr(kind(text), "scope_id", None)
    except ValueError:
        return False


def is_label(label):
    if not LABEL.fullmatch(label):
        return False
    if not label.startswith("xn--"):
        return True
    try:
        return any(character >= "\xa0" for character in label[4:].encode().decode("punycode"))
    except UnicodeError:
        return False


def ascii_form(host):
    """The host in Punycode. None when it has characters other than letters with their marks, digits, and - _ . """
    if host.isascii():
        return host
    for text in (host, unicodedata.normalize("NFKC", host)):
        if any(unicodedata.category(each) not in LETTERS_AND_DIGITS for each in text if each not in "-_."):
            return None
        if any(unicodedata.category(label[0])[0] == "M" for label in text.split(".") if label):
            return None  # a mark without its letter
    try:
        return host.encode("idna").decode()
    except UnicodeError:
        return None
