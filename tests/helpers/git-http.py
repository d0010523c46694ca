"""git-http.py ROOT USER PASSWORD-FILE: serves the git repositories below ROOT on a free loopback port,
with basic authentication, through git's own http backend. Prints the port once it listens."""
import base64
import http.server
import os
import subprocess
import sys

root, user, password_file = sys.argv[1:]
password = open(password_file).read()
wanted = "Basic " + base64.b64encode(f"{user}:{password}".encode()).decode()


class Handler(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        if self.headers.get("Authorization") != wanted:
            self.answer(401, b"WWW-Authenticate: Basic realm=\"repositories\"", b"")
            return
        path, _, query = self.path.partition("?")
        environment = dict(os.environ, GIT_PROJECT_ROOT=root, GIT_HTTP_EXPORT_ALL="1",
                           PATH_INFO=path, QUERY_STRING=query, REQUEST_METHOD=self.command,
                           CONTENT_TYPE=self.headers.get("Content-Type", ""),
                           CONTENT_LENGTH=str(len(body)), REMOTE_USER=user,
                           GIT_PROTOCOL=self.headers.get("Git-Protocol", ""))
        made = subprocess.run(["git", "http-backend"], env=environment, input=body,
                              capture_output=True).stdout
        head, _, rest = made.partition(b"\r\n\r\n")
        self.answer(200, head, rest)

    do_POST = do_GET

    def answer(self, status, head, body):
        self.send_response(status)
        for line in head.decode().splitlines():
            self.send_header(*line.split(": ", 1))
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass


server = http.server.HTTPServer(("127.0.0.1", 0), Handler)
print(server.server_port, flush=True)
server.serve_forever()
