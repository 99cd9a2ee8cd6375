"""An OAuth 1 resource server whose checks are oauthlib's RFC 5849 code, sharing nothing with the client.
It answers 200 with the request's nonce when signature and protocol parameters are right, else 401 with
what is wrong. Arguments: consumer key, consumer secret, token, token secret. Prints its port first,
and ends when its standard input does."""

import os
import sys
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

from oauthlib.common import safe_string_equals
from oauthlib.oauth1.rfc5849 import signature, utils

CONSUMER_KEY, CONSUMER_SECRET, TOKEN, TOKEN_SECRET = sys.argv[1:5]


class Verifier(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"  # the client keeps its connections open

    def problem(self, header, oauth, body):
        expected = {"oauth_consumer_key": CONSUMER_KEY, "oauth_token": TOKEN,
                    "oauth_signature_method": "HMAC-SHA1", "oauth_version": "1.0"}
        if any(oauth.get(name) != value for name, value in expected.items()) or not oauth.get("oauth_nonce") \
                or abs(int(oauth.get("oauth_timestamp", "0")) - time.time()) > 300:
            return "wrong or missing protocol parameters"
        form = self.headers.get("Content-Type", "").startswith("application/x-www-form-urlencoded")
        parameters = signature.collect_parameters(uri_query=self.path.partition("?")[2],
                                                  body=body.decode() if form else None,
                                                  headers={"Authorization": header})
        uri = signature.base_string_uri("http://" + self.headers["Host"] + self.path)
        base = signature.signature_base_string(self.command, uri, signature.normalize_parameters(parameters))
        wanted = signature.sign_hmac_sha1(base, CONSUMER_SECRET, TOKEN_SECRET)
        return None if safe_string_equals(wanted, oauth.get("oauth_signature", "")) else "signature mismatch: " + base

    def answer(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", "0")))
        header = self.headers.get("Authorization", "")
        try:
            oauth = {name: utils.unescape(value) for name, value in utils.parse_authorization_header(header)}
            wrong = self.problem(header, oauth, body)
        except ValueError as error:  # oauthlib's word on a malformed header, query or body
            wrong = str(error)
        reply = (wrong or oauth["oauth_nonce"]).encode()
        self.send_response(401 if wrong else 200)
        self.send_header("Content-Length", str(len(reply)))
        self.end_headers()
        self.wfile.write(reply)

    do_GET = do_POST = do_PUT = do_PATCH = do_DELETE = answer

    def log_message(self, format, *args):
        pass


server = ThreadingHTTPServer(("127.0.0.1", 0), Verifier)
server.daemon_threads = True
print(server.server_address[1], flush=True)
sys.stdout.close()
# Ends with the test, even one that crashed: its end closes our standard input.
threading.Thread(target=lambda: (sys.stdin.read(), os._exit(0)), daemon=True).start()
server.serve_forever()
