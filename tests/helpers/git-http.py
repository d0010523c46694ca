"""git-http.py ROOT USER PASSWORD-FILE: serves the files below ROOT, repositories that git may read, on
a free loopback port, with basic authentication. Prints the port once it listens."""
import base64
import http.server
import os
import sys

root, user, password_file = sys.argv[1:]
password = open(password_file).read()
wanted = "Basic " + base64.b64encode(f"{user}:{password}".encode()).decode()


class Handler(http.server.SimpleHTTPRequestHandler):
    def do_GET(self):
        if self.headers.get("Authorization") == wanted:
            super().do_GET()
            return
        self.send_response(401)
        self.send_header("WWW-Authenticate", "Basic realm=\"repositories\"")
        self.send_header("Content-Length", "0")
        self.end_headers()

    def log_message(self, *_):
        pass


os.chdir(root)
server = http.server.HTTPServer(("127.0.0.1", 0), Handler)
print(server.server_port, flush=True)
server.serve_forever()
