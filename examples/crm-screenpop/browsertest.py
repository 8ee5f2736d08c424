#!/usr/bin/env python3
"""The sample CRM page in headless Chromium, against the PBX simulator.

Starts the simulator with a scripted incoming call, the bridge host logged in
as 1000, two HTTP servers for the page (one origin allowed, one not) and
Chromium, which it drives over the DevTools protocol (standard library only).
Checks: the page pairs; clicking a number on the page places the call in the
simulator; the scripted call pops a card with the phone book's name; the page
from the other origin is refused and gets nothing. Screenshots of each step
are written to --out. Exit 0 on success, 1 on failure, 77 when Chromium is
missing.
"""
import argparse
import base64
import functools
import http.server
import json
import os
import re
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request

CHROMIUM_FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                  "--disable-background-networking", "--disable-component-update", "--disable-sync",
                  "--window-size=1100,700", "--remote-debugging-port=0"]


class Failure(Exception):
    pass


def wait_for(what, condition, timeout=20.0):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        value = condition()
        if value:
            return value
        time.sleep(0.1)
    raise Failure("timed out waiting for " + what)


class WebSocket:
    """Just enough of a WebSocket client for the DevTools protocol."""

    def __init__(self, url):
        m = re.match(r"ws://([^:/]+):(\d+)(/.*)", url)
        self.sock = socket.create_connection((m.group(1), int(m.group(2))), timeout=30)
        key = base64.b64encode(os.urandom(16)).decode()
        self.sock.sendall((f"GET {m.group(3)} HTTP/1.1\r\nHost: {m.group(1)}:{m.group(2)}\r\n"
                           f"Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Key: {key}\r\n"
                           "Sec-WebSocket-Version: 13\r\n\r\n").encode())
        head = b""
        while b"\r\n\r\n" not in head:
            head += self.sock.recv(1)
        if b" 101 " not in head.split(b"\r\n")[0]:
            raise Failure("DevTools handshake refused: " + head.decode(errors="replace"))

    def send(self, text):
        data = text.encode()
        mask = os.urandom(4)
        size = len(data)
        header = bytes([0x81])
        if size < 126:
            header += bytes([0x80 | size])
        elif size < 65536:
            header += bytes([0x80 | 126]) + struct.pack(">H", size)
        else:
            header += bytes([0x80 | 127]) + struct.pack(">Q", size)
        self.sock.sendall(header + mask + bytes(b ^ mask[i % 4] for i, b in enumerate(data)))

    def _read(self, n):
        data = b""
        while len(data) < n:
            chunk = self.sock.recv(n - len(data))
            if not chunk:
                raise Failure("DevTools connection closed")
            data += chunk
        return data

    def receive(self):
        message = b""
        while True:
            b0, b1 = self._read(2)
            size = b1 & 0x7F
            if size == 126:
                size = struct.unpack(">H", self._read(2))[0]
            elif size == 127:
                size = struct.unpack(">Q", self._read(8))[0]
            payload = self._read(size)
            if b0 & 0x0F == 0x8:
                raise Failure("DevTools connection closed")
            message += payload
            if b0 & 0x80:
                return message.decode()


class Page:
    """One tab, driven over its DevTools WebSocket."""

    def __init__(self, url):
        self.ws = WebSocket(url)
        self.next_id = 0

    def call(self, method, **params):
        self.next_id += 1
        self.ws.send(json.dumps({"id": self.next_id, "method": method, "params": params}))
        while True:
            message = json.loads(self.ws.receive())
            if message.get("id") == self.next_id:
                if "error" in message:
                    raise Failure(f"{method}: {message['error']}")
                return message.get("result", {})

    def eval(self, expression):
        result = self.call("Runtime.evaluate", expression=expression, returnByValue=True)
        if "exceptionDetails" in result:
            raise Failure(f"{expression}: {result['exceptionDetails']}")
        return result["result"].get("value")

    def navigate(self, url):
        self.call("Page.navigate", url=url)
        wait_for("the page to load", lambda: self.eval("document.readyState") == "complete")

    def click(self, selector):
        box = self.eval(f"(() => {{ const r = document.querySelector({json.dumps(selector)})"
                        ".getBoundingClientRect(); return [r.x + r.width / 2, r.y + r.height / 2]; })()")
        for kind in ("mousePressed", "mouseReleased"):
            self.call("Input.dispatchMouseEvent", type=kind, x=box[0], y=box[1], button="left", clickCount=1)

    def screenshot(self, path):
        with open(path, "wb") as f:
            f.write(base64.b64decode(self.call("Page.captureScreenshot", format="png")["data"]))


class Log:
    """Collects the lines a child process writes, on a thread of its own."""

    def __init__(self, stream):
        self.lines = []
        threading.Thread(target=self._read, args=(stream,), daemon=True).start()

    def _read(self, stream):
        for line in iter(stream.readline, ""):
            self.lines.append(line.rstrip("\n"))

    def find(self, pattern):
        for line in self.lines:
            m = re.search(pattern, line)
            if m:
                return m
        return None


class QuietHandler(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *args):
        pass


def serve(directory):
    handler = functools.partial(QuietHandler, directory=directory)
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--sim", required=True)
    parser.add_argument("--host", required=True)
    parser.add_argument("--page", required=True)
    parser.add_argument("--out", required=True)
    parser.add_argument("--chromium", default=shutil.which("chromium") or "/usr/bin/chromium")
    args = parser.parse_args()
    if not os.access(args.chromium, os.X_OK):
        print("chromium not found: skipped")
        return 77
    os.makedirs(args.out, exist_ok=True)
    work = tempfile.mkdtemp(prefix="crm-screenpop-")
    children = []

    def start(command, **kw):
        process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, **kw)
        children.append(process)
        return process

    try:
        # A customer of the simulator's phone book calls once the page has dialled.
        scenario = os.path.join(os.path.dirname(os.path.abspath(args.page)), "scenario.json")
        sim = start([args.sim, "--port", "0", "--scenario", scenario, "--answer-delay", "600000",
                     "--probe-interval", "0"])
        sim_log = Log(sim.stdout)
        sim_port = wait_for("the simulator", lambda: sim_log.find(r"listening on 127\.0\.0\.1:(\d+)")).group(1)

        page_dir = os.path.dirname(os.path.abspath(args.page))
        allowed, other = serve(page_dir), serve(page_dir)
        allowed_origin = f"http://127.0.0.1:{allowed.server_port}"
        host = start([args.host, "--server", f"127.0.0.1:{sim_port}", "--user", "1000",
                      "--origin", allowed_origin])
        host_out, host_err = Log(host.stdout), Log(host.stderr)
        ready = json.loads(wait_for("the bridge host", lambda: host_out.find(r"^\{.*\}$")).group(0))
        fragment = f"#port={ready['port']}&token={ready['token']}"
        name = os.path.basename(args.page)

        chromium = start([args.chromium] + CHROMIUM_FLAGS + [f"--user-data-dir={work}/profile", "about:blank"])
        chromium_log = Log(chromium.stderr)
        devtools = wait_for("Chromium", lambda: chromium_log.find(r"DevTools listening on ws://127\.0\.0\.1:(\d+)"))
        targets = json.load(urllib.request.urlopen(f"http://127.0.0.1:{devtools.group(1)}/json/list"))
        page = Page(next(t for t in targets if t["type"] == "page")["webSocketDebuggerUrl"])
        state = "document.getElementById('state').textContent"

        # 1. The page pairs with the bridge.
        page.navigate(f"{allowed_origin}/{name}{fragment}")
        wait_for("the page to pair", lambda: page.eval(state) == "connected")
        if page.eval("document.querySelectorAll('button.dial').length") != 3:
            raise Failure("the page's numbers did not become buttons")
        page.screenshot(os.path.join(args.out, "01-connected.png"))

        # 2. Clicking a number dials it: the simulator sees the call.
        page.click("button.dial[data-number='(02) 555-0100']")
        wait_for("the simulator to see the call", lambda: sim_log.find(r"1000 dials 025550100"))
        page.screenshot(os.path.join(args.out, "02-dialled.png"))

        # 3. The scripted call rings: the card shows the phone book's name.
        card = "(document.querySelector('.card:not(.ended) .name') || {}).textContent"
        wait_for("the screen pop", lambda: page.eval(card) == "Laura Bianchi")
        wait_for("the book", lambda: "Acme Logistics" in page.eval(
            "document.querySelector('.card:not(.ended) .book').textContent"))
        page.screenshot(os.path.join(args.out, "03-screenpop.png"))

        # 4. The same page from another origin is refused and gets nothing.
        page.navigate(f"http://127.0.0.1:{other.server_port}/{name}{fragment}")
        wait_for("the refusal", lambda: page.eval(state).startswith("closed (1008 origin not allowed)"))
        if page.eval("crm.eventsSeen") != 0 or page.eval("document.querySelectorAll('.card').length") != 0:
            raise Failure("the refused page received events")
        wait_for("the host's log line", lambda: host_err.find(
            rf"closed page 127\.0\.0\.1:\d+ \(origin \"http://127\.0\.0\.1:{other.server_port}\"\): "
            r"origin not allowed"))
        page.screenshot(os.path.join(args.out, "04-refused.png"))
        print("crm-screenpop: all steps passed; screenshots in", args.out)
        return 0
    except Failure as failure:
        print("crm-screenpop FAILED:", failure)
        for title, log in (("simulator", locals().get("sim_log")), ("host", locals().get("host_err"))):
            if log:
                print(f"--- {title}\n" + "\n".join(log.lines[-30:]))
        return 1
    finally:
        for process in reversed(children):
            process.terminate()
            try:
                process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                process.kill()
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
