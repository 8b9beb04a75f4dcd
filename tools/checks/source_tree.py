"""The source tree as the checks see it: files, the rooms they belong to, code without comments and literals."""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]


class Finding:
    def __init__(self, path, line, text):
        self.path, self.line, self.text = path, line, text

    def __str__(self):
        return f"{self.path}:{self.line}: {self.text}"


def source_files(root):
    return sorted(p for p in (root / "src").rglob("*") if p.suffix in (".h", ".cpp"))


def room_table(root):
    """{room: rooms it may include} from cmake/Layers.cmake."""
    text = (root / "cmake" / "Layers.cmake").read_text()
    table = {}
    for name, neighbours in re.findall(r"set\(LAYER_(\w+)([^)]*)\)", text):
        table[name] = set(neighbours.split())
    return table


def room_of(path, table):
    """The room with the longest folder that holds `path` (relative to src/); None when no room does."""
    folders = path.split("/")[:-1]
    while folders:
        if "_".join(folders) in table:
            return "_".join(folders)
        folders.pop()
    return None


LITERAL_OR_COMMENT = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|(?<![0-9a-fA-F])\'(?:\\.|[^\'\\\n])*\'', re.S)


def code_only(text):
    """`text` with comments and literals blanked out, every line where it was."""
    return LITERAL_OR_COMMENT.sub(lambda match: re.sub(r"[^\n]", " ", match.group()), text)


def report(check, findings):
    """Prints the findings; the exit code."""
    for finding in findings:
        print(finding)
    print(f"{check}: {len(findings)} finding{'' if len(findings) == 1 else 's'}")
    return 1 if findings else 0
