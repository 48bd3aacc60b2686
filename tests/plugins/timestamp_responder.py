#!/usr/bin/env python3
"""A local Authenticode time-stamp server for the signed test libraries.

    timestamp_responder.py <tsa certificate> <tsa key> <extra certificates> <record>

Listens on 127.0.0.1 at a free port and prints the port on its first line.
Each POST holds, in base64, a legacy Authenticode time-stamp request; the
answer is a PKCS#7 SignedData over the request's content (the signature to
be time-stamped) made by `openssl smime`, whose signer information becomes
the countersignature. The signing time of the last answer is written to
<record> as "YYYY-MM-DD HH:MM" in UTC, for the tests to compare.
"""

import base64
import http.server
import os
import subprocess
import sys
import tempfile

SIGNING_TIME_OID = bytes.fromhex("06092a864886f70d010905")


def read_tlv(data, offset):
    """Returns (tag, content start, content end) of the DER item at offset."""
    tag = data[offset]
    length = data[offset + 1]
    start = offset + 2
    if length & 0x80:
        count = length & 0x7F
        length = int.from_bytes(data[start:start + count], "big")
        start += count
    return tag, start, start + length


def last_octet_string(data, start=0, end=None):
    """The content of the last OCTET STRING found walking the DER tree."""
    end = len(data) if end is None else end
    found = None
    offset = start
    while offset < end:
        tag, content, after = read_tlv(data, offset)
        if tag == 0x04:
            found = data[content:after]
        elif tag & 0x20:  # constructed: look inside
            inner = last_octet_string(data, content, after)
            if inner is not None:
                found = inner
        offset = after
    return found


def signing_time(der):
    """The UTCTime of the first signingTime attribute, as 'YYYY-MM-DD HH:MM'."""
    at = der.index(SIGNING_TIME_OID) + len(SIGNING_TIME_OID)
    _, content, _ = read_tlv(der, at)  # the SET of values
    tag, start, end = read_tlv(der, content)
    if tag != 0x17:
        raise ValueError("signingTime is not a UTCTime")
    t = der[start:end].decode("ascii")  # YYMMDDHHMMSSZ
    return "20%s-%s-%s %s:%s" % (t[0:2], t[2:4], t[4:6], t[6:8], t[8:10])


class Responder(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        body = self.rfile.read(int(self.headers["Content-Length"]))
        content = last_octet_string(base64.b64decode(body))
        with tempfile.TemporaryDirectory() as work:
            blob = os.path.join(work, "blob")
            with open(blob, "wb") as f:
                f.write(content)
            answer = subprocess.run(
                ["openssl", "smime", "-sign", "-binary", "-nodetach", "-nosmimecap",
                 "-md", "sha256", "-signer", self.server.tsa_cert, "-inkey", self.server.tsa_key,
                 "-certfile", self.server.extra_certs, "-outform", "DER", "-in", blob],
                check=True, capture_output=True).stdout
        with open(self.server.record, "w") as f:
            f.write(signing_time(answer) + "\n")
        self.send_response(200)
        self.send_header("Content-Type", "application/octet-stream")
        self.send_header("Content-Length", str(len(answer)))
        self.end_headers()
        self.wfile.write(answer)

    def log_message(self, *args):
        pass


def main():
    if len(sys.argv) != 5:
        sys.exit(__doc__)
    server = http.server.HTTPServer(("127.0.0.1", 0), Responder)
    server.tsa_cert, server.tsa_key, server.extra_certs, server.record = sys.argv[1:]
    print(server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main()
