"""Serves pictures as a test wants them, on 127.0.0.1, until it is ended:

  picture_server.py HTTP_PORT HTTPS_PORT RFB_PORT CERTIFICATE KEY JPEG JPEG

HTTP: the path of a request names what comes. RFB: the port behind RFB_PORT names it. Each connection
is a line on standard output, and what it says is another one.
"""

import socket
import ssl
import struct
import sys
import threading
import time

http_port, https_port, rfb_port = (int(word) for word in sys.argv[1:4])
certificate, key = sys.argv[4:6]
one, two = (open(name, "rb").read() for name in sys.argv[6:8])
HEAD = b"HTTP/1.0 200 OK\r\nContent-Type: multipart/x-mixed-replace;boundary=frame\r\n\r\n"
PERIOD = 0.05


def part(jpeg):
    return b"--frame\r\nContent-Length: %d\r\n\r\n" % len(jpeg) + jpeg + b"\r\n"


def again(line, pieces):
    """Sends a stream's beginning, and then the pieces one after the other for ever."""
    line.sendall(HEAD)
    while True:
        for piece in pieces:
            line.sendall(piece)
            time.sleep(PERIOD)


def huge(line):
    line.sendall(HEAD)
    for length in (b"Content-Length: 104857600\r\n", b"") * 1000:
        line.sendall(b"--frame\r\n" + length + b"\r\n")
        for _ in range(1600):
            line.sendall(bytes(65536))
        line.sendall(b"\r\n")


def drip(line):
    line.sendall(HEAD + part(one))
    for byte in part(two):
        line.sendall(bytes([byte]))
        time.sleep(0.01)


def silence(line):
    line.sendall(HEAD + part(one))
    time.sleep(1000)


HTTP = {
    "good": lambda line: again(line, [part(one)]),
    "sizes": lambda line: again(line, [part(one)] * 20 + [part(two)] * 20),
    "huge": huge, "drip": drip, "silence": silence,
}


def screen(line, width=640, height=480):
    line.sendall(b"RFB 003.008\n")
    line.recv(12)
    line.sendall(b"\x01\x01")
    line.recv(1)
    line.sendall(bytes(4))
    line.recv(1)
    form = bytes((32, 24, 0, 1, 0, 255, 0, 255, 0, 255, 16, 8, 0, 0, 0, 0))
    line.sendall(struct.pack(">HH", width, height) + form + struct.pack(">I", 4) + b"fake")


def rectangle(x, y, width, height, encoding):
    return struct.pack(">BBHHHHHi", 0, 0, 1, x, y, width, height, encoding)


def quiet(line):
    """Gives one picture, and then nothing; says what it hears."""
    screen(line)
    line.sendall(rectangle(0, 0, 640, 480, 0) + bytes((30, 20, 10, 0)) * 640 * 480)
    kinds = {0: 20, 3: 10, 4: 8, 5: 6, 6: 8}
    heard = b""
    while data := line.recv(4096):
        heard += data
        while heard:
            size = kinds.get(heard[0]) or (4 + 4 * heard[3] if len(heard) > 3 else 9999)
            if len(heard) < size:
                break
            print("heard", heard[0], flush=True)
            heard = heard[size:]


def flood(line):
    screen(line, 4096, 4096)
    # What costs the most for the fewest bytes: the whole picture onto itself.
    while True:
        line.sendall((rectangle(0, 0, 4096, 4095, 1) + struct.pack(">HH", 0, 1)) * 100)


def slow(line):
    screen(line)
    for byte in rectangle(0, 0, 640, 480, 0) + bytes(640 * 480 * 4):
        line.sendall(bytes([byte]))
        time.sleep(0.01)


def cut(line):
    screen(line)
    line.sendall(rectangle(0, 0, 640, 480, 0) + bytes(1000))
    line.shutdown(socket.SHUT_WR)
    line.recv(4096)


RFB = [quiet, flood, lambda line: (line.sendall(b"RFB 003.008\n"), time.sleep(1000)), slow, cut]


def answer(line, what, name):
    print("open", name, flush=True)
    try:
        what(line)
    except OSError:
        pass
    line.close()
    print("closed", name, flush=True)


def http(line):
    line.settimeout(10)
    request = line.recv(4096).decode().split(" ")
    line.settimeout(None)
    name = request[1].lstrip("/") if len(request) > 1 else ""
    answer(line, HTTP.get(name, lambda line: line.sendall(b"HTTP/1.0 404 Not Found\r\n\r\n")), name)


def serve(port, take):
    listener = socket.create_server(("127.0.0.1", port))
    while True:
        line = listener.accept()[0]
        threading.Thread(target=take, args=(line,), daemon=True).start()


def secure(line):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, key)
    try:
        http(context.wrap_socket(line, server_side=True))
    except (ssl.SSLError, OSError):
        print("refused", flush=True)


for number, what in enumerate(RFB):
    threading.Thread(target=serve, daemon=True, args=(
        rfb_port + number, lambda line, what=what, number=number: answer(line, what, f"rfb{number}"))).start()
threading.Thread(target=serve, args=(https_port, secure), daemon=True).start()
threading.Thread(target=serve, args=(http_port, http), daemon=True).start()
time.sleep(0.2)
print("ready", flush=True)
threading.Event().wait()
