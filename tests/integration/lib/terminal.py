# terminal.py WIDTH COMMAND... : runs it with a terminal of that width for its output, prints what it
# wrote there, and last "widest N": the columns of its widest line. Ends as the command did. TYPED is
# what somebody types, unseen, and then no more.
import fcntl, os, pty, re, struct, sys, termios, unicodedata

messages = os.dup(2)
pid, terminal = pty.fork()
if pid == 0:
    os.dup2(messages, 2)
    fcntl.ioctl(1, termios.TIOCSWINSZ, struct.pack("HHHH", 24, int(sys.argv[1]), 0, 0))
    os.execvp(sys.argv[2], sys.argv[2:])
modes = termios.tcgetattr(terminal)
modes[3] &= ~termios.ECHO
termios.tcsetattr(terminal, termios.TCSANOW, modes)
os.write(terminal, os.environ.get("TYPED", "").encode() + b"\4")
text = b""
while True:
    try:
        piece = os.read(terminal, 65536)
    except OSError:  # the last one at the other end is gone
        break
    text += piece
    if not piece:
        break
shown = text.decode().replace("\r\n", "\n")


def columns(line):
    plain = re.sub(r"\x1b\[[0-9]*[mK]", "", line)
    return sum(0 if unicodedata.combining(c) else 2 if unicodedata.east_asian_width(c) in "WF" else 1 for c in plain)


sys.stdout.write(shown)
print("widest", max(map(columns, shown.split("\n"))))
sys.exit(os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]))
