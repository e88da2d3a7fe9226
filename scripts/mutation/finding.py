"""Finds in C++ sources what can be broken, by libclang's positions."""

import hashlib
import json
import re
from dataclasses import dataclass, field
from pathlib import Path

from clang import cindex
from clang.cindex import CursorKind, TypeKind

COMPARISONS = {"<": ("less", "<="), "<=": ("lessOrEqual", "<"), ">": ("greater", ">="), ">=": ("greaterOrEqual", ">")}
SIGNS = {"+": ("sum", "-"), "-": ("difference", "+")}
# Their texts are for people; no test should depend on each of them.
LOGGING = re.compile(r"(hostLog|logger)\(\)")
BRANCHES = {CursorKind.IF_STMT, CursorKind.WHILE_STMT, CursorKind.DO_STMT, CursorKind.FOR_STMT,
            CursorKind.CXX_FOR_RANGE_STMT, CursorKind.CASE_STMT, CursorKind.DEFAULT_STMT}
INTEGERS = {TypeKind.CHAR_U, TypeKind.UCHAR, TypeKind.USHORT, TypeKind.UINT, TypeKind.ULONG, TypeKind.ULONGLONG,
            TypeKind.CHAR_S, TypeKind.SCHAR, TypeKind.SHORT, TypeKind.INT, TypeKind.LONG, TypeKind.LONGLONG}
FUNCTIONS = {CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD, CursorKind.CONSTRUCTOR, CursorKind.DESTRUCTOR,
             CursorKind.CONVERSION_FUNCTION, CursorKind.FUNCTION_TEMPLATE}


@dataclass
class Place:
    """A piece of a source file whose meaning one or two mutants change."""
    file: str
    start: int
    end: int
    function: str
    line: int
    form: str                       # condition, declared, statement, or the function of a comparison or sum
    changes: list                   # what each mutant does, for people: "always true", "left out", "<= for <"
    text: str
    operator: tuple = ()            # where the operator stands, of comparisons and sums
    ids: list = field(default_factory=list)


def read_places(top, build, paths):
    """All places in `paths` (files or folders of the tree `top`), in their order; `build` has the compile commands."""
    top = top.resolve()
    wanted = [(top / path).resolve() for path in paths]
    for path in wanted:
        if not path.exists():
            raise SystemExit(f"scripts/mutate: {path}: no such file or folder")
    # What a header holds is seen through the sources beside it and below it.
    folders = [path if path.is_dir() else path.parent if path.suffix == ".h" else path for path in wanted]
    places = {}
    for command in json.loads((build / "compile_commands.json").read_text()):
        source = Path(command["directory"], command["file"]).resolve()
        if any(source == folder or folder in source.parents for folder in folders):
            for place in Reader(top, wanted).read(source, command):
                places.setdefault((place.file, place.start, place.end, place.form), place)
    def rank(file):
        return next(at for at, path in enumerate(wanted) if path in (top / file, *(top / file).parents))

    found = sorted(places.values(), key=lambda place: (rank(place.file), place.file, place.start, -place.end))
    give_ids(found)
    return found


def give_ids(places):
    """A mutant keeps its id while its text and its function keep theirs, whatever file they move to."""
    seen = {}
    for place in places:
        for change in place.changes:
            name = "\0".join([place.function, " ".join(place.text.split()), change])
            seen[name] = seen.get(name, 0) + 1
            place.ids.append(hashlib.sha256(f"{name}\0{seen[name]}".encode()).hexdigest()[:8])


class Reader:
    """Reads one translation unit."""

    def __init__(self, top, wanted):
        self.top = top
        self.wanted = wanted
        self.known = {}
        self.contents = {}
        self.macros = {}
        self.places = []
        self.file = ""
        self.function = ""

    def read(self, source, command):
        unit = cindex.Index.create().parse(str(source), args=arguments(command),
                                           options=cindex.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        errors = [str(said) for said in unit.diagnostics if said.severity >= cindex.Diagnostic.Error]
        if errors:
            raise SystemExit("\n".join(["scripts/mutate: libclang does not understand the sources:", *errors]))
        own = [cursor for cursor in unit.cursor.get_children() if self.is_wanted(cursor)]
        for cursor in own:
            if cursor.kind == CursorKind.MACRO_INSTANTIATION:
                extent = cursor.extent
                self.macros.setdefault(extent.start.file.name, []).append((extent.start.offset, extent.end.offset))
        for cursor in own:
            if not cursor.kind.is_preprocessing():
                self.file = cursor.location.file.name
                self.visit(cursor)
        return self.places

    def is_wanted(self, cursor):
        file = cursor.location.file
        if file is None:
            return False
        if file.name not in self.known:
            path = Path(file.name).resolve()
            self.known[file.name] = any(path == one or one in path.parents for one in self.wanted)
        return self.known[file.name]

    def visit(self, cursor):
        outer = self.function
        if cursor.kind in FUNCTIONS:
            self.function = cursor.spelling
        if not self.is_left_alone(cursor):
            children = list(cursor.get_children())
            self.look_at(cursor, children)
            for child in children:
                self.visit(child)
        self.function = outer

    def is_left_alone(self, cursor):
        if cursor.kind == CursorKind.STATIC_ASSERT:
            return True
        if cursor.kind in FUNCTIONS:
            return re.search(r"=\s*default$", self.text_of(cursor)) is not None  # its body is the compiler's
        declares = cursor.kind in (CursorKind.VAR_DECL, CursorKind.FIELD_DECL, CursorKind.ENUM_CONSTANT_DECL)
        return declares and re.match(r"(static |inline )*constexpr\b", self.text_of(cursor)) is not None

    def look_at(self, cursor, children):
        kind = cursor.kind
        if kind in (CursorKind.IF_STMT, CursorKind.WHILE_STMT, CursorKind.DO_STMT, CursorKind.FOR_STMT,
                    CursorKind.CONDITIONAL_OPERATOR):
            self.look_at_branch(cursor, children)
        elif kind == CursorKind.BINARY_OPERATOR and len(children) == 2:
            self.look_at_operator(cursor, *children)
        elif kind == CursorKind.CALL_EXPR and len(children) == 3 and cursor.spelling[8:] in COMPARISONS:
            self.look_at_operator(cursor, children[0], children[2])
        elif kind == CursorKind.RETURN_STMT and children and is_boolean(children[0]):
            self.add_condition(children[0])
        elif kind == CursorKind.RETURN_STMT and children and children[0].type.kind == TypeKind.VOID:
            self.add_statement(children[0])
        elif kind == CursorKind.VAR_DECL and is_boolean(cursor) and children and children[-1].kind.is_expression():
            self.add_condition(children[-1])
        if kind == CursorKind.COMPOUND_STMT or kind in BRANCHES:
            self.look_at_statements(kind, children)

    def look_at_branch(self, cursor, children):
        if cursor.kind == CursorKind.IF_STMT and re.match(r"if\s+constexpr\b", self.text_of(cursor)):
            return
        declared = [child for child in children if child.kind == CursorKind.VAR_DECL]
        if declared:
            if cursor.kind == CursorKind.IF_STMT:
                self.add(declared[0], "declared", ["always false"])
            return
        if cursor.kind == CursorKind.DO_STMT:
            condition = children[-1]
        elif cursor.kind == CursorKind.FOR_STMT:
            condition = next((child for child in children[:-1] if is_boolean(child)), None)
        else:
            condition = next((child for child in children if child.kind.is_expression()), None)
        if condition is None or self.text_of(condition) in ("true", "false"):
            return
        # A loop that never ends says nothing.
        loops = cursor.kind in (CursorKind.FOR_STMT, CursorKind.WHILE_STMT, CursorKind.DO_STMT)
        self.add_condition(condition, ["always false"] if loops else None)

    def look_at_operator(self, cursor, left, right):
        between, operator = self.between(left, right)
        if operator in ("&&", "||"):
            for operand in (left, right):
                # Of a chain only the links.
                if self.operator_of(operand) != operator:
                    self.add_condition(operand, ["always true" if operator == "&&" else "always false"])
        elif operator in COMPARISONS:
            function, other = COMPARISONS[operator]
            self.add(cursor, function, [f"{other} for {operator}"], between)
        elif operator in SIGNS and all(one.type.get_canonical().kind in INTEGERS for one in (left, right)):
            function, other = SIGNS[operator]
            self.add(cursor, function, [f"{other} for {operator}"], between)

    def between(self, left, right):
        span = (left.extent.end.offset, right.extent.start.offset)
        return span, self.contents_of(self.file)[slice(*span)].decode(errors="replace").strip()

    def operator_of(self, cursor):
        children = list(cursor.get_children())
        return self.between(*children)[1] if cursor.kind == CursorKind.BINARY_OPERATOR and len(children) == 2 else ""

    def look_at_statements(self, kind, children):
        first = {CursorKind.COMPOUND_STMT: 0, CursorKind.DO_STMT: 0, CursorKind.IF_STMT: 1}.get(kind, len(children) - 1)
        last = 1 if kind == CursorKind.DO_STMT else len(children)
        if kind == CursorKind.IF_STMT:
            # The condition is the first expression; what follows are the branches.
            first = 1 + next((at for at, child in enumerate(children) if child.kind.is_expression()), len(children))
        for child in children[first:last]:
            if self.does_something(child):
                self.add_statement(child)

    def does_something(self, cursor):
        while cursor.kind == CursorKind.UNEXPOSED_EXPR:
            inner = list(cursor.get_children())
            if len(inner) != 1:
                return False
            cursor = inner[0]
        if cursor.kind == CursorKind.BINARY_OPERATOR:
            return True
        return cursor.kind in (CursorKind.CALL_EXPR, CursorKind.COMPOUND_ASSIGNMENT_OPERATOR, CursorKind.UNARY_OPERATOR,
                               CursorKind.CXX_DELETE_EXPR)

    def add_statement(self, cursor):
        if not LOGGING.match(self.text_of(cursor)):
            self.add(cursor, "statement", ["left out"])

    def add_condition(self, cursor, changes=None):
        said = self.text_of(cursor)
        if said in ("true", "false"):
            changes = ["always false" if said == "true" else "always true"]
        for place in self.places:
            if (place.file, place.start, place.end, place.form) == (self.name(), *extent_of(cursor), "condition"):
                return  # an operand of an operand has been seen as the outer one's
        self.add(cursor, "condition", changes or ["always true", "always false"])

    def add(self, cursor, form, changes, operator=()):
        start, end = extent_of(cursor)
        text = self.text_of(cursor)
        if cursor.extent.start.file.name != self.file or not is_whole(text):
            return
        # A macro may be part of the piece; the piece may not be part of a macro.
        for first, last in self.macros.get(self.file, []):
            if first < end and start < last and not (start <= first and last <= end):
                return
            if "(" in self.contents_of(self.file)[first:last].decode() and first == start and last == end:
                return
        self.places.append(Place(self.name(), start, end, self.function, cursor.extent.start.line, form, changes, text,
                                 operator))

    def name(self):
        return str(Path(self.file).resolve().relative_to(self.top))

    def text_of(self, cursor):
        return self.contents_of(self.file)[slice(*extent_of(cursor))].decode(errors="replace")

    def contents_of(self, file):
        if file not in self.contents:
            self.contents[file] = Path(file).read_bytes()
        return self.contents[file]


def arguments(command):
    """The arguments of a compile command without compiler, source and outputs; what only GCC knows is no error."""
    words = command["command"].split()
    begin = next(at for at, word in enumerate(words) if word.startswith("-"))
    kept = []
    skip = False
    for word in words[begin:]:
        if skip or word in ("-o", "-c", "-MF", "-MT"):
            skip = not skip and word != "-c"
        elif not word.endswith((".cpp", ".cc")) and word != "-Werror":
            kept.append(word)
    return kept + ["-Wno-everything"]


def extent_of(cursor):
    return cursor.extent.start.offset, cursor.extent.end.offset


def is_boolean(cursor):
    return cursor.type.get_canonical().kind == TypeKind.BOOL


def is_whole(text):
    bare = re.sub(r'"(\\.|[^"\\])*"|\'(\\.|[^\'\\])\'', "", text)
    return bare != "" and all(bare.count(a) == bare.count(b) for a, b in ("()", "[]", "{}"))
