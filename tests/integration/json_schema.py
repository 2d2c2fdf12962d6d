# SPDX-License-Identifier: MIT
"""Whether a document is what a JSON schema says. A keyword that is not known here is refused, not ignored."""
import re

KINDS = {"object": dict, "array": list, "string": str, "boolean": bool, "integer": int, "null": type(None)}
TELLING_NOTHING = {"$schema", "$defs", "title", "description"}


def is_of(kind, value):
    return isinstance(value, KINDS[kind]) and (kind != "integer" or not isinstance(value, bool))


def same(a, b):
    """Python takes 1 for True."""
    return type(a) is type(b) and a == b


def check(value, schema, root, place="$"):
    """Raises a ValueError that names the place where the value is not what the schema says."""
    def expect(holds, what):
        if not holds:
            raise ValueError(f"{place} {what}: {str(value)[:200]}")

    for keyword, argument in schema.items():
        if keyword in TELLING_NOTHING:
            continue
        if keyword == "$ref":
            found = root
            for part in argument.removeprefix("#/").split("/"):
                found = found[part]
            check(value, found, root, place)
        elif keyword == "oneOf":
            reasons = []
            for one in argument:
                try:
                    check(value, one, root, place)
                except ValueError as reason:
                    reasons.append(str(reason))
            expect(len(reasons) == len(argument) - 1,
                   f"fits {len(argument) - len(reasons)} of the choices, not one ({'; '.join(reasons)})")
        elif keyword == "type":
            kinds = argument if isinstance(argument, list) else [argument]
            expect(any(is_of(kind, value) for kind in kinds), f"is not of type {argument}")
        elif keyword == "const":
            expect(same(value, argument), f"is not {argument!r}")
        elif keyword == "enum":
            expect(any(same(value, one) for one in argument), f"is none of {argument}")
        elif keyword == "pattern":
            expect(not isinstance(value, str) or re.search(argument, value), f"does not match {argument}")
        elif keyword == "minimum":
            expect(not is_of("integer", value) or value >= argument, f"is less than {argument}")
        elif keyword == "required":
            missing = set(argument) - set(value) if isinstance(value, dict) else set()
            expect(not missing, f"lacks {sorted(missing)}")
        elif keyword == "properties":
            for key, one in argument.items():
                if isinstance(value, dict) and key in value:
                    check(value[key], one, root, f"{place}.{key}")
        elif keyword == "additionalProperties":
            expect(argument is False, "may have further keys, which is not checked here")
            more = set(value) - set(schema["properties"]) if isinstance(value, dict) else set()
            expect(not more, f"has also {sorted(more)}")
        elif keyword == "items":
            for i, item in enumerate(value if isinstance(value, list) else []):
                check(item, argument, root, f"{place}[{i}]")
        else:
            raise ValueError(f"{keyword} is not known here")
