"""The mistakes: small changes of the daemon's sources, found with the compiler's parser."""

import collections
import os
import re

from common import Unusable

# `where` is the function, `before` and `after` the changed line or statement,
# `text` the whole file with the mistake.
Mutant = collections.namedtuple("Mutant", "file line where kind before after text")

OPERATORS = {
    "==": ["!="], "!=": ["=="], "<": ["<=", ">="], ">": [">=", "<="], "<=": ["<"], ">=": [">"],
    "&&": ["||"], "||": ["&&"], "++": ["--"], "--": ["++"], "+": ["-"], "-": ["+"], "*": ["+"], "/": ["*"],
    "%": ["/"], "+=": ["-="], "-=": ["+="], "|": ["&"], "&": ["|"],
}
WORDS = {"true": "false", "false": "true"}


class MutantMaker:
    """Finds the mutants of source files with the compiler's own parser."""

    def __init__(self, root, flags):
        try:
            from clang import cindex
        except ImportError:
            raise Unusable("the parser is missing, install python3-clang (or run without --no-install)") from None
        self.clang = cindex
        self.index = cindex.Index.create()
        self.root = root
        self.flags = flags  # by source file, relative to the root

    def mutants_of(self, file):
        with open(os.path.join(self.root, file), encoding="utf-8") as handle:
            text = handle.read()
        unit = self.index.parse(os.path.join(self.root, file), args=self.flags_of(file))
        fatal = [d.spelling for d in unit.diagnostics if d.severity >= self.clang.Diagnostic.Error]
        if fatal:
            raise Unusable(f"{file} cannot be parsed: {fatal[0]}")
        data = text.encode()
        found = []
        seen = set()

        def add(kind, start, end, new, before=None):
            changed = data[:start] + new.encode() + data[end:]
            if changed in seen or changed == data:
                return
            seen.add(changed)
            line = data.count(b"\n", 0, start) + 1
            first = data.rfind(b"\n", 0, start) + 1
            last = data.find(b"\n", end)
            old_text = before if before is not None else data[first:last].decode()
            new_text = new if before is not None else (data[first:start].decode() + new + data[end:last].decode())
            found.append(Mutant(file, line, where, kind, one_line(old_text), one_line(new_text), changed.decode()))

        for cursor in self.own_cursors(unit, file):
            where = cursor.spelling or "-"
            self.tokens(cursor, data, add)
            self.statements(cursor, data, add)
        return numbered(sorted(found, key=lambda mutant: mutant.line))

    def flags_of(self, file):
        if file in self.flags:
            return self.flags[file]
        # A header is read as the highest room reads it: from there all others can be seen.
        return [*self.flags["src/main/HAmain.cpp"], "-x", "c++"]

    def own_cursors(self, unit, file):
        """The top-level declarations of the file itself, namespaces opened."""
        kinds = self.clang.CursorKind
        path = os.path.join(self.root, file)
        pending = list(unit.cursor.get_children())
        while pending:
            cursor = pending.pop(0)
            if cursor.location.file is None or cursor.location.file.name != path:
                continue
            if cursor.kind in (kinds.NAMESPACE, kinds.UNEXPOSED_DECL, kinds.LINKAGE_SPEC):
                pending = list(cursor.get_children()) + pending
            elif cursor.kind != kinds.STATIC_ASSERT:
                yield cursor

    def tokens(self, cursor, data, add):
        kinds = self.clang.TokenKind
        binary = self.operators(cursor)
        types = self.type_extents(cursor) + attributes(data)
        for token in cursor.get_tokens():
            start, end = token.extent.start.offset, token.extent.end.offset
            word = token.spelling
            if any(first <= start < last for first, last in types):
                continue
            if token.kind == kinds.LITERAL:
                for kind, new in literal_changes(word):
                    add(kind, start, end, new)
            elif token.kind == kinds.KEYWORD and word in WORDS:
                add("constant", start, end, WORDS[word])
            elif token.kind == kinds.PUNCTUATION:
                if word == "!":
                    add("condition", start, end, "")
                elif word in OPERATORS and (start in binary or word in ("++", "--")):
                    for new in OPERATORS[word]:
                        add("operator", start, end, new)

    def operators(self, cursor):
        """The offsets of the binary operators, which stand between their operands."""
        kinds = self.clang.CursorKind
        found = set()
        for node in cursor.walk_preorder():
            called = node.kind == kinds.CALL_EXPR and re.fullmatch(r"operator[^\w\s(\[]+", node.spelling)
            if called or node.kind in (kinds.BINARY_OPERATOR, kinds.COMPOUND_ASSIGNMENT_OPERATOR):
                parts = [part.extent for part in node.get_children()]
                offsets = [token.extent.start.offset for token in node.get_tokens()]
                found |= {at for at in offsets if len(parts) > 1 and parts[0].end.offset <= at < parts[-1].start.offset}
        return found

    def type_extents(self, cursor):
        """Places where a sign or a number belongs to a type and not to the program's work."""
        kinds = self.clang.CursorKind
        wanted = (kinds.TYPE_REF, kinds.TEMPLATE_REF, kinds.STATIC_ASSERT)
        return [(n.extent.start.offset, n.extent.end.offset) for n in cursor.walk_preorder() if n.kind in wanted]

    def statements(self, cursor, data, add):
        kinds = self.clang.CursorKind
        blocks = (kinds.COMPOUND_STMT, kinds.CASE_STMT, kinds.DEFAULT_STMT)
        jumps = (kinds.BREAK_STMT, kinds.CONTINUE_STMT)
        fixed = (kinds.DECL_STMT, kinds.IF_STMT, kinds.FOR_STMT, kinds.WHILE_STMT, kinds.DO_STMT, kinds.SWITCH_STMT,
                 kinds.COMPOUND_STMT, kinds.CXX_TRY_STMT, kinds.CXX_FOR_RANGE_STMT, kinds.CASE_STMT,
                 kinds.DEFAULT_STMT, kinds.NULL_STMT, kinds.CXX_CATCH_STMT)
        for node in cursor.walk_preorder():
            parts = list(node.get_children())
            if node.kind in (kinds.IF_STMT, kinds.WHILE_STMT) and parts:
                condition = next((p for p in parts if p.kind not in (kinds.DECL_STMT, kinds.VAR_DECL)), None)
                if condition is not None and condition.kind.is_expression():
                    start, end = condition.extent.start.offset, condition.extent.end.offset
                    old = data[start:end].decode()
                    add("condition", start, end, f"!({old})")
            if node.kind not in blocks:
                continue
            simple = []
            for part in parts:
                start = part.extent.start.offset
                end = data.find(b";", part.extent.end.offset - 1) + 1
                empty_return = part.kind == kinds.RETURN_STMT and not list(part.get_children())
                droppable = part.kind in jumps or empty_return or (part.kind not in fixed and part.kind != kinds.RETURN_STMT)
                if not droppable or data[part.extent.end.offset : end].strip() not in (b";", b""):
                    simple.append(None)
                    continue
                old = data[start:end].decode()
                add("dropped", start, end, ";", before=old)
                movable = part.kind not in jumps and not empty_return
                simple.append((start, end, old) if movable else None)
            for one, two in zip(simple, simple[1:]):
                if one and two and one[2] != two[2]:
                    between = data[one[1] : two[0]].decode()
                    add("swapped", one[0], two[1], two[2] + between + one[2], before=one[2] + " " + two[2])


def attributes(data):
    """The places of the attributes: advice for the compiler, not work of the program."""
    return [match.span() for match in re.finditer(rb"\[\[.*?\]\]", data)]


def literal_changes(word):
    """Wrong forms of a literal, with the kind of the change."""
    if word.startswith('"'):
        inner = word[1:-1]
        yield "text", '"' + inner + '~"'
        if inner and not inner.endswith("\\"):
            shorter = re.sub(r"(\\.|[^\\])$", "", inner)
            yield "text", '"' + shorter + '"'
        turned = inner.swapcase() if "%" not in inner and "\\" not in inner else inner
        if turned != inner:
            yield "text", '"' + turned + '"'
    elif word.startswith("'"):
        yield "constant", "'~'"
    elif re.fullmatch(r"\d+[uUlLzZ]*", word) and not re.fullmatch(r"0\d+", word):
        digits = re.match(r"\d+", word).group()
        suffix = word[len(digits) :]
        yield "constant", str(int(digits) + 1) + suffix
        if int(digits) > 0:
            yield "constant", str(int(digits) - 1) + suffix
    elif re.fullmatch(r"0[0-7]+", word):
        yield "constant", "0" + oct(int(word, 8) ^ 0o1)[2:]


def one_line(text):
    return re.sub(r"\s+", " ", text).strip()


def numbered(mutants):
    """Tells like changes of one function apart: the second one is at "FUNCTION #2"."""
    seen = collections.Counter()
    result = []
    for mutant in mutants:
        key = (mutant.where, mutant.before, mutant.after)
        seen[key] += 1
        result.append(mutant._replace(where=f"{mutant.where} #{seen[key]}") if seen[key] > 1 else mutant)
    return result


def files_below(root):
    """The source files of the daemon, relative to the root."""
    found = []
    for folder, _, names in os.walk(os.path.join(root, "src")):
        found += [os.path.relpath(os.path.join(folder, n), root) for n in names if n.endswith((".cpp", ".h"))]
    return sorted(found)


def sample(pools, count, generator):
    """Draws from all files in proportion, so that the small ones are not forgotten."""
    pools = {file: list(pool) for file, pool in pools.items() if pool}
    for pool in pools.values():
        generator.shuffle(pool)
    chosen = []
    while pools and (count == 0 or len(chosen) < count):
        names = sorted(pools)
        file = generator.choices(names, weights=[len(pools[name]) + 10 for name in names])[0]
        chosen.append(pools[file].pop())
        if not pools[file]:
            del pools[file]
    return chosen
