"""The examples of a Markdown page, as a reader would paste them: every
```python block in order, in one interpreter session, and every ```sh block
that calls curl, each followed by a block showing its output.

In a Python block, a comment right after an expression statement is the
reply the page shows for it (a Python literal, possibly over several lines);
an expression without one is an error of the page. Comments elsewhere are
prose. Replies are compared after `normalize`: the values that differ from
run to run (times, progress) are checked for their type only, and '...'
in a shown text stands for any run of characters."""

import ast
import re

# Members whose values are times, or grow with time.
TIME_MEMBERS = {"submitted", "modified", "progress"}
ANY = "..."


def code_blocks(markdown):
    """(language, text, line number) of each fenced block, in order."""
    blocks = []
    for m in re.finditer(r"^```(\w*)\n(.*?)^```", markdown, re.M | re.S):
        line = markdown.count("\n", 0, m.start()) + 1
        blocks.append((m.group(1), m.group(2), line))
    return blocks


class Statement:
    def __init__(self, source, expected_text, line):
        self.source = source
        self.expected_text = expected_text  # None: no reply shown
        self.line = line
        self.is_expression = isinstance(ast.parse(source).body[0], ast.Expr)

    def expected(self):
        return ast.literal_eval(self.expected_text)


def python_statements(block, first_line):
    """The statements of one block, each with the reply comment after it."""
    tree = ast.parse(block)
    lines = block.split("\n")
    out = []
    for i, node in enumerate(tree.body):
        source = "\n".join(lines[node.lineno - 1:node.end_lineno])
        stop = tree.body[i + 1].lineno - 1 if i + 1 < len(tree.body) else len(lines)
        comment = []
        for text in lines[node.end_lineno:stop]:
            if not text.startswith("#"):
                break
            comment.append(text[1:].strip())
        expected = " ".join(comment) if comment else None
        out.append(Statement(source, expected, first_line + node.lineno))
    return out


def normalize(value, key=None):
    if key in TIME_MEMBERS:
        return "<%s>" % type(value).__name__
    if isinstance(value, dict):
        return {k: normalize(v, k) for k, v in value.items()}
    if isinstance(value, list):
        return [normalize(v) for v in value]
    return value


def matches(shown, actual):
    """True when actual is what the page shows; '...' inside a shown text
    matches any run of characters."""
    if isinstance(shown, str) and ANY in shown and isinstance(actual, str):
        pattern = ".*".join(re.escape(part) for part in shown.split(ANY))
        return re.fullmatch(pattern, actual, re.S) is not None
    if isinstance(shown, dict) and isinstance(actual, dict):
        return shown.keys() == actual.keys() and all(matches(shown[k], actual[k]) for k in shown)
    if isinstance(shown, list) and isinstance(actual, list):
        return len(shown) == len(actual) and all(matches(s, a) for s, a in zip(shown, actual))
    return type(shown) is type(actual) and shown == actual


def normalize_http(text):
    """curl's output as the page shows it: LF line ends, the times masked."""
    text = text.replace("\r\n", "\n").strip()
    return re.sub(r"(<member><name>(?:%s)</name><value>)<[^/]*>[^<]*</[^>]*>"
                  % "|".join(TIME_MEMBERS), r"\1...", text)
