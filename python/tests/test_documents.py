"""What the documents show of Python runs, and prints what they say it prints."""

import contextlib
import io
import pathlib
import re

import pytest

import kybridge

TOP = pathlib.Path(__file__).parents[2]


def blocks(document):
    """The blocks of a document that are marked python, each with the output that a block of text right behind shows."""
    pattern = r"^```python\n(.*?)^```\n(?:\n```text\n(.*?)^```)?"
    return re.findall(pattern, (TOP / document).read_text(), re.MULTILINE | re.DOTALL)


@pytest.mark.parametrize("document", ["README.md", "docs/python.md"])
def test_a_document_runs(document):
    names = {}
    assert blocks(document)
    for code, shown in blocks(document):
        said = io.StringIO()
        with contextlib.redirect_stdout(said):
            exec(compile(code, document, "exec"), names)
        expected = re.escape(shown).replace(r"\.\.\.", ".*")
        assert re.fullmatch(expected, said.getvalue(), re.DOTALL), said.getvalue()
    for test in [value for name, value in names.items() if name.startswith("test_")]:
        with kybridge.Switch() as switch:
            test(switch)
