"""A smart card in the virtual reader: card.py DATABASE PORT CERTIFICATE...

The card is libcacard's: a CAC card with these certificates (nicknames) of an NSS database, whose password is the card's PIN.
The reader, vpcd, listens on the port. Ending the program is pulling the card; after SIGUSR1 it is pulled when it is asked for
a signature. Prints "PIN" when one has arrived.
"""

import ctypes
import signal
import socket
import sys
import time

OFF, ON, RESET, ATR = b"\x00", b"\x01", b"\x02", b"\x04"  # messages of one byte; all others are APDUs
# libcacard's own ATR names no protocol, and with T=0 OpenSC fetches answers in a way that libcacard does not know.
ATR_OF_A_T1_CARD = bytes.fromhex("3b800181")
VERIFY, SIGN = 0x20, 0x42  # the second bytes of APDUs
UNKNOWN_ERROR = b"\x6f\x00"


class Card:
    def __init__(self, database, certificates):
        self.lib = ctypes.CDLL("libcacard.so.0")
        self.lib.vcard_emul_options.restype = ctypes.c_void_p
        self.lib.vreader_get_reader_by_name.restype = ctypes.c_void_p
        options = f'db="sql:{database}" use_hw=no soft=(,Reader,CAC,,{",".join(certificates)})'
        if self.lib.vcard_emul_init(ctypes.c_void_p(self.lib.vcard_emul_options(options.encode()))) != 0:
            sys.exit(f"libcacard takes no card from {database}")
        self.reader = ctypes.c_void_p(self.lib.vreader_get_reader_by_name(b"Reader"))
        self.buffer = ctypes.create_string_buffer(65536)

    def switch_on(self):
        self.lib.vreader_power_on(self.reader, self.buffer, ctypes.byref(ctypes.c_int(len(self.buffer))))

    def switch_off(self):
        self.lib.vreader_power_off(self.reader)

    def answer(self, apdu):
        size = ctypes.c_int(len(self.buffer))
        status = self.lib.vreader_xfr_bytes(self.reader, apdu, len(apdu), self.buffer, ctypes.byref(size))
        return self.buffer.raw[: size.value] if status == 0 else UNKNOWN_ERROR


class Reader:
    """The connection to vpcd: messages with two bytes of length in front."""

    def __init__(self, port):
        self.socket = connect(port)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def receive(self):
        return self._read(int.from_bytes(self._read(2), "big"))

    def send(self, message):
        self.socket.sendall(len(message).to_bytes(2, "big") + message)

    def _read(self, size):
        data = b""
        while len(data) < size:
            # vpcd writes a message in two parts, and the kernel keeps the second back until the first is acknowledged.
            self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_QUICKACK, 1)
            part = self.socket.recv(size - len(data))
            if not part:
                sys.exit("the reader is gone")
            data += part
        return data


def connect(port, patience=15):
    end = time.monotonic() + patience
    while True:
        try:
            return socket.create_connection(("127.0.0.1", port))
        except ConnectionRefusedError:
            if time.monotonic() > end:
                raise
            time.sleep(0.05)


def main():
    database, port, *certificates = sys.argv[1:]
    card = Card(database, certificates)
    reader = Reader(int(port))
    pull_at = []
    signal.signal(signal.SIGUSR1, lambda *_: pull_at.append(SIGN))
    while True:
        message = reader.receive()
        if message in (ON, RESET):
            card.switch_on()
        elif message == OFF:
            card.switch_off()
        elif message == ATR:
            reader.send(ATR_OF_A_T1_CARD)
        elif message[1] in pull_at:
            return
        else:
            if message[1] == VERIFY and len(message) > 5:  # a shorter one asks how many tries are left
                print("PIN", flush=True)
            reader.send(card.answer(message))


main()
