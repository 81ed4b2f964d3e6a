"""An HTTP server of the test's own, in its own thread."""

import http.server
import ssl
import threading


class LocalServer:
    """Serves on a loopback port until the end of its `with`; with a certificate and its key by TLS."""

    def __init__(self, handler, certificate=None, port=0):
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", port), handler)
        self.server.daemon_threads = True
        if certificate:
            context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            context.load_cert_chain(*map(str, certificate))
            self.server.socket = context.wrap_socket(self.server.socket, server_side=True)
        self.port = self.server.server_address[1]
        self.thread = threading.Thread(target=self.server.serve_forever, args=(0.02,))
        self.thread.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.server.shutdown()
        self.thread.join()
        self.server.server_close()
