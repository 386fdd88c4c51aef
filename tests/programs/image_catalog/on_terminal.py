"""Run a command on a terminal of its own: on_terminal.py COLUMNS COMMAND...

Prints what the terminal receives. The words "type TEXT" on standard input are typed, with "^C" for Ctrl-C, once
the terminal has received "after TEXT", when such a line stands in front. The exit status is the command's, as a
shell tells it."""

import fcntl
import os
import pty
import signal
import struct
import sys
import termios


def main():
    columns, command = int(sys.argv[1]), sys.argv[2:]
    script = [line.split(" ", 1) for line in sys.stdin.read().splitlines()]
    child, terminal = pty.fork()
    if child == 0:
        signal.signal(signal.SIGINT, signal.SIG_DFL)  # a job in the background inherits that it is ignored
        fcntl.ioctl(1, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        os.execvp(command[0], command)
    received = b""
    while True:
        while script and script[0][0] == "after" and script[0][1].encode() in received:
            script.pop(0)
        while script and script[0][0] == "type":
            os.write(terminal, script.pop(0)[1].encode().replace(b"^C", b"\x03").replace(b"^M", b"\n"))
        try:
            piece = os.read(terminal, 4096)
        except OSError:
            piece = b""
        if not piece:
            break
        received += piece
    os.write(1, received)
    status = os.waitpid(child, 0)[1]
    sys.exit(os.WEXITSTATUS(status) if os.WIFEXITED(status) else 128 + os.WTERMSIG(status))


main()
