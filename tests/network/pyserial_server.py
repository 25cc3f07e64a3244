"""A remote serial port by pyserial's own server, whose device is pyserial's loop: RTS is its CTS, DTR its DSR.

Prints its TCP port, serves one client after the other.
"""
import socket
import threading
import time

import serial
import serial.rfc2217

device = serial.serial_for_url("loop://", timeout=0.05)
listener = socket.create_server(("127.0.0.1", 0))
print(listener.getsockname()[1], flush=True)


class Sender:
    def __init__(self, client):
        self.client = client

    def write(self, data):
        self.client.sendall(data)


def send(client, manager):
    while True:
        if data := device.read(device.in_waiting or 1):
            client.sendall(b"".join(manager.escape(data)))


def look(manager):
    while True:
        time.sleep(0.1)
        manager.check_modem_lines()


while True:
    client, _ = listener.accept()
    client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
    manager = serial.rfc2217.PortManager(device, Sender(client))
    threading.Thread(target=send, args=(client, manager), daemon=True).start()
    threading.Thread(target=look, args=(manager,), daemon=True).start()
    while data := client.recv(1024):
        device.write(b"".join(manager.filter(data)))
