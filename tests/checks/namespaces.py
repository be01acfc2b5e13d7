"""Runs a program again where it has processes, message queues and a loopback network of its own."""
import os
import subprocess
import sys


def isolated():
    """Returns in separate namespaces, with the loopback network up. When the process namespace ends, so do all processes
    in it. Where this user may not make namespaces, the program ends with exit status 77 and the reason."""
    if os.environ.get("INSIDE") == "yes":
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
        return
    own = ["unshare", "--map-root-user", "--user", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc",
           "--ipc", "--net"]
    for command in (own[:1] + own[3:], own):  # root needs no user namespace
        attempt = subprocess.run([*command, "ip", "link", "set", "lo", "up"], capture_output=True, text=True)
        if attempt.returncode == 0:
            os.environ["INSIDE"] = "yes"
            os.execvp("unshare", [*command, sys.executable, *sys.argv])
    print(f"Skipped: this user may not make namespaces ({attempt.stderr.strip()})")
    sys.exit(77)
