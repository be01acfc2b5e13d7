"""Finds the places of a C++ source where one operator, constant or call can be changed, and writes the source in which
each change can be switched on while the program runs (mutant.h).

Only bodies of functions are changed. Left alone are what the compiler needs as a constant (constexpr, case labels, sizes
of arrays, arguments of templates), macros, and declarations.
"""
import hashlib
import re
from dataclasses import dataclass, field

from clang.cindex import CursorKind, Index, TranslationUnit, TypeKind

OPERATORS = {"==": ("equal", "!="), "!=": ("unequal", "=="), "<": ("less", "<="), ">": ("more_than", ">="),
             "<=": ("at_most", "<"), ">=": ("at_least", ">"), "+": ("plus", "-"), "-": ("minus", "+"),
             "*": ("times", "+"), "/": ("divided", "*"), "%": ("rest", "+"), "&": ("both_bits", "|"),
             "|": ("any_bit", "&"), "^": ("one_bit", "|"), "<<": ("shifted_left", ">>"), ">>": ("shifted_right", "<<")}
COMPARISONS = ("==", "!=", "<", ">", "<=", ">=")
NUMBERS = {TypeKind.INT, TypeKind.UINT, TypeKind.LONG, TypeKind.ULONG, TypeKind.LONGLONG, TypeKind.ULONGLONG,
           TypeKind.SHORT, TypeKind.USHORT, TypeKind.UCHAR, TypeKind.SCHAR, TypeKind.CHAR_S, TypeKind.CHAR_U,
           TypeKind.FLOAT, TypeKind.DOUBLE}
FUNCTIONS = {CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD, CursorKind.CONSTRUCTOR, CursorKind.DESTRUCTOR,
             CursorKind.FUNCTION_TEMPLATE, CursorKind.CONVERSION_FUNCTION}
CONSTANT = {CursorKind.STATIC_ASSERT, CursorKind.TYPE_REF, CursorKind.TEMPLATE_REF}
WRAPPERS = {CursorKind.UNEXPOSED_EXPR, CursorKind.PAREN_EXPR}


@dataclass
class Change:
    """One change. `key` stays the same while the line does."""
    line: int
    column: int
    what: str
    text: str
    key: str = ""
    number: int = 0
    edits: list = field(default_factory=list)  # (offset, end offset, order, text with {} for the number)


def bare(cursor):
    """The expression without the casts that the compiler adds and without brackets."""
    while cursor.kind in WRAPPERS:
        inner = list(cursor.get_children())
        if len(inner) != 1:
            return cursor
        cursor = inner[0]
    return cursor


class Finder:
    def __init__(self, path, arguments):
        self.source = open(path, "rb").read()
        self.lines = self.source.decode().split("\n")
        unit = Index.create().parse(str(path), arguments, options=TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        errors = [str(note) for note in unit.diagnostics if note.severity >= 3]
        if errors:
            raise ValueError(f"{path}: {errors[0]}")
        self.path = str(path)
        self.macros = [self.span(one) for one in unit.cursor.get_children()
                       if one.kind == CursorKind.MACRO_INSTANTIATION and self.is_here(one)]
        self.changes = []
        self.depth = 0
        for cursor in unit.cursor.get_children():
            self.outside(cursor)
        self.name()

    # ---- Where a cursor is ---------------------------------------------------------------------------------------
    def is_here(self, cursor):
        return cursor.location.file is not None and cursor.location.file.name == self.path

    @staticmethod
    def span(cursor):
        return cursor.extent.start.offset, cursor.extent.end.offset

    def is_macro(self, cursor):
        begin, end = self.span(cursor)
        return any(begin < last and first < end for first, last in self.macros)

    def text_of(self, cursor):
        begin, end = self.span(cursor)
        return self.source[begin:end].decode()

    # ---- The walk ------------------------------------------------------------------------------------------------
    def outside(self, cursor):
        if cursor.kind == CursorKind.NAMESPACE or cursor.kind in (CursorKind.STRUCT_DECL, CursorKind.CLASS_DECL,
                                                                  CursorKind.UNEXPOSED_DECL, CursorKind.LINKAGE_SPEC):
            for inner in cursor.get_children():
                self.outside(inner)
        elif cursor.kind in FUNCTIONS and self.is_here(cursor) and cursor.is_definition():
            if not self.starts_constant(cursor):
                for inner in cursor.get_children():
                    if inner.kind == CursorKind.COMPOUND_STMT or inner.kind.is_expression():
                        self.walk(inner, cursor)

    def starts_constant(self, cursor):
        begin, end = self.span(cursor)
        return re.search(rb"\b(constexpr|consteval|constinit)\b", self.source[begin:min(end, begin + 80)].split(b"(")[0])

    def walk(self, cursor, parent):
        if cursor.kind in CONSTANT or cursor.kind == CursorKind.VAR_DECL and self.starts_constant(cursor):
            return
        if cursor.kind == CursorKind.DECL_STMT and self.starts_constant(cursor):
            return
        begin, end = self.span(cursor)
        if any(first <= begin and end <= last for first, last in self.macros):
            return
        self.depth += 1
        if cursor.kind.is_expression() and not self.is_macro(cursor) and end > begin:
            self.expression(cursor, parent)
        if cursor.kind == CursorKind.RETURN_STMT and not self.is_macro(cursor):
            self.returned(cursor)
        children = list(cursor.get_children())
        for place, inner in enumerate(children):
            if cursor.kind == CursorKind.CASE_STMT and place == 0:
                continue
            if cursor.kind == CursorKind.LAMBDA_EXPR and inner.kind not in (CursorKind.COMPOUND_STMT,):
                continue
            if inner.kind.is_expression() and not self.is_macro(inner):
                if self.is_condition(cursor, inner, place, children):
                    self.condition(inner)
                elif self.is_statement(cursor, inner, place, children):
                    self.statement(inner)
            self.walk(inner, cursor)
        self.depth -= 1

    @staticmethod
    def is_condition(cursor, inner, place, children):
        if cursor.kind in (CursorKind.IF_STMT, CursorKind.WHILE_STMT, CursorKind.CONDITIONAL_OPERATOR):
            return place == 0
        return cursor.kind == CursorKind.DO_STMT and place == 1

    @staticmethod
    def is_statement(cursor, inner, place, children):
        if cursor.kind == CursorKind.COMPOUND_STMT:
            return True
        if cursor.kind in (CursorKind.IF_STMT, CursorKind.WHILE_STMT, CursorKind.DEFAULT_STMT, CursorKind.CASE_STMT):
            declares = not children[0].kind.is_expression() and cursor.kind in (CursorKind.IF_STMT, CursorKind.WHILE_STMT)
            return place > declares or cursor.kind == CursorKind.DEFAULT_STMT
        if cursor.kind in (CursorKind.FOR_STMT, CursorKind.CXX_FOR_RANGE_STMT):
            return place == len(children) - 1
        return cursor.kind == CursorKind.DO_STMT and place == 0

    # ---- The changes ---------------------------------------------------------------------------------------------
    def add(self, cursor, what, *edits):
        line, column = cursor.extent.start.line, cursor.extent.start.column
        change = Change(line, column, what, self.lines[line - 1].strip())
        # At one place: what ends comes before what begins, the inner ends and the outer begins first.
        orders = [(2, self.depth)] + [(1, 0)] * (len(edits) - 2) + [(0, -self.depth)]
        for order, (begin, end, text) in zip(orders, edits):
            change.edits.append((begin, end, order, text))
        self.changes.append(change)

    def wrap(self, cursor, what, before, after):
        begin, end = self.span(cursor)
        self.add(cursor, what, (begin, begin, before), (end, end, after))

    def expression(self, cursor, parent):
        if cursor.kind == CursorKind.BINARY_OPERATOR:
            self.binary(cursor, *list(cursor.get_children())[:2])
        elif cursor.kind == CursorKind.CALL_EXPR and cursor.spelling[8:] in COMPARISONS:
            parts = list(cursor.get_children())
            if len(parts) == 3:
                self.binary(cursor, parts[0], parts[2])
        elif cursor.kind == CursorKind.UNARY_OPERATOR and self.text_of(cursor).startswith("!"):
            self.wrap(cursor, "! is left out", "(mutation::on({}) != (", "))")
        elif cursor.kind == CursorKind.CXX_BOOL_LITERAL_EXPR:
            text = self.text_of(cursor)
            self.wrap(cursor, f"{text} becomes {'false' if text == 'true' else 'true'}", "(mutation::on({}) != ", ")")
        elif cursor.kind == CursorKind.INTEGER_LITERAL and parent.type.kind != TypeKind.POINTER:
            self.wrap(cursor, f"{self.text_of(cursor)} becomes one more", "mutation::more({}, ", ")")
        elif cursor.kind == CursorKind.DECL_REF_EXPR:
            self.name_of_constant(cursor)

    def binary(self, cursor, left, right):
        begin, end = self.span(left)[1], self.span(right)[0]
        operator = self.source[begin:end].decode().strip()
        if operator in ("&&", "||"):
            neutral = "mutation::on({}) || (" if operator == "&&" else "!mutation::on({}) && ("
            for part, name in ((left, "left"), (right, "right")):
                if not self.is_macro(part):
                    self.wrap(part, f"the {name} side of {operator} is left out", "(" + neutral, "))")
            return
        if operator not in OPERATORS:
            return
        if operator not in COMPARISONS and not all(side.type.get_canonical().kind in NUMBERS for side in (left, right)):
            return
        name, becomes = OPERATORS[operator]
        at = begin + self.source[begin:end].index(operator.encode())
        first, last = self.span(cursor)
        self.add(cursor, f"{operator} becomes {becomes}", (first, first, f"mutation::{name}({{}}, "),
                 (at, at + len(operator), ", "), (last, last, ")"))

    def name_of_constant(self, cursor):
        named = cursor.referenced
        text = self.text_of(cursor)
        if named is None or not re.fullmatch(r"[\w:]+", text):
            return
        if named.kind == CursorKind.ENUM_CONSTANT_DECL:
            names = [one.spelling for one in named.semantic_parent.get_children()
                     if one.kind == CursorKind.ENUM_CONSTANT_DECL]
            if len(names) > 1:
                other = names[(names.index(named.spelling) + 1) % len(names)]
                prefix = text[:len(text) - len(named.spelling)]
                self.wrap(cursor, f"{text} becomes {other}", "mutation::other({}, ", f", {prefix}{other})")
        elif named.kind == CursorKind.VAR_DECL and named.type.is_const_qualified() \
                and named.semantic_parent.kind in (CursorKind.NAMESPACE, CursorKind.TRANSLATION_UNIT) \
                and named.type.get_canonical().kind in NUMBERS:
            self.wrap(cursor, f"{text} becomes one more", "mutation::more({}, ", ")")

    def is_changed_anyway(self, cursor):
        inner = bare(cursor)
        return inner.kind in (CursorKind.BINARY_OPERATOR, CursorKind.CXX_BOOL_LITERAL_EXPR) or \
            inner.kind == CursorKind.CALL_EXPR and inner.spelling[8:] in COMPARISONS or \
            inner.kind == CursorKind.UNARY_OPERATOR and self.text_of(inner).startswith("!")

    def condition(self, cursor):
        if not self.is_changed_anyway(cursor):
            self.wrap(cursor, "the condition is reversed", "(mutation::on({}) != static_cast<bool>(", "))")

    def returned(self, cursor):
        values = list(cursor.get_children())
        if len(values) == 1 and values[0].type.get_canonical().kind == TypeKind.BOOL and not self.is_macro(values[0]) \
                and not self.is_changed_anyway(values[0]):
            self.wrap(values[0], "the result is reversed", "(mutation::on({}) != (", "))")

    def statement(self, cursor):
        inner = bare(cursor)
        if inner.kind in (CursorKind.CALL_EXPR, CursorKind.BINARY_OPERATOR, CursorKind.COMPOUND_ASSIGNMENT_OPERATOR,
                          CursorKind.UNARY_OPERATOR):
            what = "the call is left out" if inner.kind == CursorKind.CALL_EXPR else "the statement is left out"
            self.wrap(cursor, what, "(mutation::on({}) ? static_cast<void>(0) : static_cast<void>(", "))")

    # ---- The names -----------------------------------------------------------------------------------------------
    def name(self):
        seen = {}
        for change in sorted(self.changes, key=lambda one: (one.line, one.column)):
            what = (change.text, change.what)
            seen[what] = seen.get(what, 0) + 1
            change.key = hashlib.sha256(repr((what, seen[what])).encode()).hexdigest()[:12]


def changed_source(source, changes, header):
    """The source with all changes in it, each with its number."""
    edits = [(begin, order, end, text.format(change.number) if "{}" in text else text)
             for change in changes for begin, end, order, text in change.edits]
    edits.sort(key=lambda one: one[:2])
    parts, place = [f'#include "{header}"\n#line 1\n'.encode()], 0
    for begin, _, end, text in edits:
        parts.append(source[place:begin] + text.encode())
        place = max(end, begin)
    return b"".join(parts) + source[place:]
