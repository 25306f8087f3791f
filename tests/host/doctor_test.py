"""doctor_test.py HOST MODULE SDK LOADER: what the doctor says of whole libraries and of broken ones, made here."""
import os
import pathlib
import random
import subprocess
import sys
import tempfile

host, module, sdk, loader = sys.argv[1:]
services = pathlib.Path("tests/checks/services.txt").read_text().split()
exports = [line.split("@")[0] for line in pathlib.Path("bridge/exported_symbols.txt").read_text().split()]


def doctor(option, file, *says):
    """Examines a file: well when nothing of what is said begins with WRONG. Returns whether it is well."""
    run = subprocess.run([host, option, file], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=60)
    well = "WRONG" not in run.stdout
    assert run.returncode == (0 if well else 1), (run.returncode, run.stdout)
    for text in says:
        assert text in run.stdout, f"{option} {file}: '{text}' was not said, but:\n{run.stdout}"
    return well


def library(name, functions, code="", *options):
    """Builds a library that exports functions and a few objects."""
    source = f"{name}.c"
    objects = ("bridge_db", "swid_validation_func_ptr", "rm_resource_global")
    pathlib.Path(source).write_text(
        "#include <signal.h>\n#include <stdlib.h>\n#include <unistd.h>\n" + code +
        "".join(f"void {f}(void) {{}}\n" if f not in objects else f"void *{f} = 0;\n" for f in functions))
    subprocess.run(["gcc", "-shared", "-fPIC", "-fno-builtin", "-o", name, source, *options], check=True)
    return name


def damaged(name, *changes):
    """A copy of the module with other bytes: (place, bytes), or the size to which it is cut."""
    content = bytearray(pathlib.Path(module).read_bytes())
    for change in changes:
        if isinstance(change, int):
            del content[change:]
        else:
            content[change[0]:change[0] + len(change[1])] = change[1]
    pathlib.Path(name).write_bytes(content)
    return name


def whole_files():
    assert doctor("--doctor", module, "whole ELF shared object", "supplies acl_bind_port, ", "right  it loads")
    assert doctor("--sdk", sdk, f"exports all {len(services)} names", "right  it loads")
    assert not doctor("--doctor", sdk, "it is an SDK's library, not the bridge module", "so it was not loaded")
    assert not doctor("--sdk", module, "it is the bridge module, not an SDK's library")
    assert not doctor("--doctor", __file__, "it is no ELF shared object")
    assert not doctor("--doctor", "absent.so", "it cannot be read: No such file")


def broken_files():
    size = os.path.getsize(module)
    assert not doctor("--doctor", damaged("arm.so", (18, b"\x28\0"), (4, b"\1")),
                      "another kind of process: arm, 32 bits, little-endian; this one is ")
    assert not doctor("--doctor", damaged("big.so", (5, b"\2"), (18, b"\0\x16")), "s390, ", "big-endian")
    assert not doctor("--doctor", damaged("cut.so", 4096), "it is truncated or damaged: it has 4096 bytes")
    assert not doctor("--doctor", damaged("header.so", 64), "its 64 bytes do not hold its headers")
    assert not doctor("--doctor", damaged("sections.so", size - 64), "no section of dynamic symbols")
    for service in services:
        assert not doctor("--sdk", library("part.so", [s for s in services if s != service]), f"not export {service}")


def files_that_do_not_load():
    soname = "-Wl,-soname,libkybridge.so.1"
    begin = "__attribute__((constructor)) static void begin(void) "
    for code, end in (("{ raise(SIGSEGV); }", "by signal 11, Segmentation fault"), ("{ abort(); }", "by signal 6"),
                      ("{ _exit(0); }", "with exit status 0"), ("{ raise(SIGALRM); }", "not done after 10 seconds")):
        assert not doctor("--doctor", library("start.so", exports, begin + code, soname),
                          "right  its soname is libkybridge.so.1", "WRONG  loading it ", end)
    crash = library("libcrash.so", [], begin + "{ raise(SIGBUS); }")
    absent = library("libabsent.so", ["absent"])
    needs = ("void absent(void); void *call = absent;", soname, "-L.", "-Wl,--no-as-needed")
    assert not doctor("--doctor", library("needs.so", exports, *needs, "-lcrash", "-labsent", "-Wl,-rpath,$ORIGIN"),
                      "loading what it needs ends the process by signal 7")
    os.remove(crash)
    os.remove(absent)
    assert not doctor("--doctor", "needs.so", "it needs libcrash.so: ", "it needs libabsent.so: ", "No such file",
                      "nobody else supplies absent", "so it was not loaded")
    assert not doctor("--doctor", library("lacks.so", exports, "void lacked(void); void *call = lacked;", soname),
                      "this process lacks lacked: ")


def random_damage():
    """Whatever is wrong with a file, the doctor lives, and calls well only what the dynamic linker loads as well."""
    size = os.path.getsize(module)
    dice = random.Random(15)
    for _ in range(20 if os.environ.get("KYBRIDGE_REDUCED_EFFORT") else 100):
        header = [(dice.choice([dice.randrange(16, 700), dice.randrange(size - 2600, size)]), dice.randbytes(1))
                  for _ in range(dice.randrange(4))]
        file = damaged("random.so", *header, *([dice.randrange(size)] if dice.random() < 0.3 else []))
        if doctor("--doctor", file):
            subprocess.run([loader, "./" + file], check=True)


host, module, sdk, loader = map(os.path.abspath, (host, module, sdk, loader))
with tempfile.TemporaryDirectory() as work:
    os.chdir(work)
    whole_files()
    broken_files()
    files_that_do_not_load()
    random_damage()
    os.chdir("/")
