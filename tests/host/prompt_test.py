"""A person at a terminal: prompt_test.py HOST HOME. Completion, colours and the history at the prompt, with and without
NO_COLOR, and how far a long script has come."""
import os
import pty
import select
import subprocess
import sys
import termios
import time

HOST, HOME = sys.argv[1:]
try:
    for end in pty.openpty():
        os.close(end)
except OSError as error:
    print(f"the prompt is not tested: {error}")
    sys.exit(0)


def talk(environment, *lines):
    """Types lines at a terminal, each after a prompt, and returns all that was shown."""
    pid, terminal = pty.fork()
    if pid == 0:
        os.environ.pop("NO_COLOR", None)
        os.environ.update(HOME=HOME, TERM="vt100", **environment)
        os.execv(HOST, [HOST, "--verbosity", "0"])
    shown = b""

    def read_until(text, times):
        nonlocal shown
        while shown.count(text) < times:
            if not select.select([terminal], [], [], 30)[0]:
                sys.exit(f"no {text} came; shown: {shown}")
            shown += os.read(terminal, 4096)

    for number, line in enumerate(lines, 1):
        read_until(b"kybridge> ", number)
        while termios.tcgetattr(terminal)[3] & termios.ICANON:  # the prompt shows a moment before keys are its own
            time.sleep(0.001)
        os.write(terminal, line)
    read_until(b"left over: nothing", 1)
    _, status = os.waitpid(pid, 0)
    assert os.waitstatus_to_exitcode(status) == 0, status
    return shown


LINES = (b"start\r", b"port announce 0x10001 as north\r", b"vport delete-port no\t\r", b"bogus\r",
         b"expect ENTRY_NOT_F\tbri\tdes\t7\r", b"show bri\t\r", b"draw " + HOME.encode() + b"/pict\t\r", b"bridge create\x03")
os.mkdir(os.path.join(HOME, "picture"))
shown = talk({}, *LINES, b"\x04")
for text in (b"all virtual ports of port north deleted", b"\x1b[31mthat line: unknown command 'bogus'",
             b"refused as expected: 21 ENTRY_NOT_FOUND", b"\x1b[1mbridges\x1b[0m: none", b"/picture: expected a name"):
    assert text in shown, (text, shown)
with open(os.path.join(HOME, ".kybridge_history"), encoding="ascii") as history:
    assert "announce" in history.read()
assert b"created" not in shown, shown
shown = talk({"NO_COLOR": "1"}, *LINES, b"quit\r")
assert b"\x1b[31m" not in shown and b"\x1b[1m" not in shown and b"unknown command 'bogus'" in shown, shown

terminal, errors = pty.openpty()
script = os.path.join(HOME, "long.kyb")
with open(script, "w", encoding="ascii") as file:
    file.write("say hello\n" * 2500)
subprocess.run([HOST, script], stdout=subprocess.DEVNULL, stderr=errors, check=True)
shown = b""
while not shown.endswith(b"\r\x1b[K"):  # it comes in pieces
    shown += os.read(terminal, 4096)
assert b": 2000 lines" in shown, shown
