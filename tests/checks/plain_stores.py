"""Disassembles what write, remove and lookup run and fails on a locked or a fence instruction.

    plain_stores.py LIBRARY...             the check
    plain_stores.py --self-test COMPILER   plants each forbidden instruction and asks for its finding

The order of the writer's stores is the protocol; on x86-64 it needs plain moves only. From the entry
functions below the check follows every call, within a library and through the linkage table into the
other one, and stops at what does not belong to the path: growth, shrinking, tracing, errors, the
system's own libraries.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

# The ways in, for each of the value types. Every pattern must be found.
ENTRIES = [
    r"Brisk::BriskWriter<.*>::write\(",
    r"Brisk::BriskWriter<.*>::remove\(",
    r"Brisk::BriskWriter<.*>::lookup\(",
    r"Brisk::BriskReader<.*>::lookup\(",
    r"Yarrow::QueueWriter::notifySlot\(",
]
# Not on the path when nothing grows, nothing is traced and nobody sleeps.
COLD = re.compile(
    r"growBuckets|shrinkBuckets|maybeGrowBuckets|::grow$|[dD]oMaybeShrink|[rR]esize$|addFreeSlots|::shrink$|"
    r"growPositions|makeRoom|::ring$|fmthrow|throwException|assertionF|emitTrace|traceFormatted|_M_throw|__throw")
FORBIDDEN = re.compile(r"\block\b|\bmfence\b|\bsfence\b|\blfence\b|\bxchg\b.*[(\[]|\bsyscall\b|\brep\b")



def cold(name):
    """Judges the bare name, without template arguments and parameters."""
    bare, depth = "", 0
    for character in name:
        depth += character == "<"
        if not depth:
            bare += character
        depth -= character == ">"
    return "[clone .cold]" in name or COLD.search(bare.split("(")[0])


FUNCTION = re.compile(r"^([0-9a-f]+) <(.*)>:$")
INSTRUCTION = re.compile(r"^\s+([0-9a-f]+):\s+(.*)$")
TARGET = re.compile(r"^(?:call|jmp|j\w+)\s+[0-9a-f]+ <(.*?)(?:\+0x[0-9a-f]+)?>$")


def functions(library):
    """Name -> lines of its disassembly."""
    text = subprocess.run(["objdump", "-d", "-C", "--no-show-raw-insn", library],
                          check=True, capture_output=True, text=True).stdout
    found, current = {}, None
    for line in text.splitlines():
        start = FUNCTION.match(line)
        if start:
            current = found.setdefault(start.group(2), [])
        elif current is not None and (instruction := INSTRUCTION.match(line)):
            current.append(instruction.group(2).strip())
    return found


def forbidden(instruction):
    # A register-to-register exchange is no store; a string move is a plain one.
    if instruction.startswith("rep "):
        return False
    return FORBIDDEN.search(instruction.split("#")[0]) and not instruction.startswith("nop")


def findings(code, entries, visited):
    """Yields (entry, function, instruction) for each forbidden one reachable from the entries, and
    adds the functions it looked at to `visited`."""
    for entry in entries:
        todo, seen = [entry], {entry}
        while todo:
            name = todo.pop()
            visited.add(name)
            for instruction in code[name]:
                if forbidden(instruction):
                    yield entry, name, instruction
                target = TARGET.match(instruction)
                if not target:
                    continue
                called = target.group(1).removesuffix("@plt")
                if called in code and called not in seen and not cold(called):
                    seen.add(called)
                    todo.append(called)


def self_test(compiler):
    source = """
        #include <atomic>
        std::atomic<long> word;
        struct Plain { static void write(long); static void inner(long); };
        void Plain::write(long v) { word.store(v, std::memory_order_release); inner(v); }
        __attribute__((noinline)) void Plain::inner(long v) { BODY; }
    """
    bodies = {
        "word.fetch_add(v)": True,
        "word.store(v)": True,
        "asm volatile(\"mfence\")": True,
        "asm volatile(\"sfence\")": True,
        "word.store(v, std::memory_order_relaxed)": False,
        "asm volatile(\"xchg %%rax, %%rbx\" : : : \"rax\", \"rbx\")": False,
    }
    for body, bad in bodies.items():
        with tempfile.TemporaryDirectory() as directory:
            path = pathlib.Path(directory, "planted.cpp")
            path.write_text(source.replace("BODY", body))
            library = path.with_suffix(".so")
            subprocess.run([compiler, "-std=c++20", "-O2", "-fPIC", "-shared", path, "-o", library], check=True)
            code = functions(library)
            found = list(findings(code, [name for name in code if name.startswith("Plain::write")], set()))
        if bool(found) != bad:
            sys.exit(f"{body}: found {found}")


def main(libraries):
    code = {}
    for library in libraries:
        for name, lines in functions(library).items():
            if not name.endswith("@plt"):
                code[name] = lines
    failed = False
    visited = set()
    for pattern in ENTRIES:
        entries = [name for name in code if re.search(pattern, name) and not cold(name)]
        print(f"{len(entries):3} functions match {pattern}")
        if not entries:
            print("   none: the check looks at nothing")
            failed = True
        for entry, name, instruction in findings(code, entries, visited):
            print(f"   {instruction}\n      in {name}\n      reached from {entry}")
            failed = True
    # What the writer must come through on its way; if these are missed the calls were not followed.
    for name in ("WriterHashMap<.*>::find\\(",):
        if not any(re.search(name, function) for function in visited):
            print(f"   the calls did not lead to {name}")
            failed = True
    print(f"{len(visited):3} functions looked at")
    return failed


if sys.argv[1] == "--self-test":
    self_test(sys.argv[2])
else:
    sys.exit(main(sys.argv[1:]))
