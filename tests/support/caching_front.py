"""nginx with the shipped configuration in front of a served site, for tests and benchmarks."""

import os
import shutil
import subprocess
import tempfile

from oculora_site import CHECKOUT, end, free_port, spawn, wait_until

# As Debian's nginx.conf has it, reduced to what matters here; the configuration under test is included as there.
MAIN = """{user}daemon off;
worker_processes auto;
worker_rlimit_nofile 16384;
pid {dir}/pid;
error_log {dir}/error.log warn;
events {{ worker_connections 4096; }}
http {{
  sendfile on;
  tcp_nopush on;
  gzip on;
  client_body_temp_path {dir}/body;
  proxy_temp_path {dir}/proxy;
  fastcgi_temp_path {dir}/fastcgi;
  uwsgi_temp_path {dir}/uwsgi;
  scgi_temp_path {dir}/scgi;
  include {dir}/oculora.conf;
}}
"""


class CachingFront:
    """Runs until close(); `port` is where it listens."""

    def __init__(self, site, *options):
        self.dir = tempfile.mkdtemp(prefix="oculora-front-")
        os.chmod(self.dir, 0o755)  # the workers are another user when this runs as root
        self.port = free_port()
        configure = os.path.join(CHECKOUT, "tools", "caching-front", "configure")
        text = subprocess.run([configure, "--listen", f"127.0.0.1:{self.port}", "--site", f"127.0.0.1:{site.port}",
                               "--cache", os.path.join(self.dir, "cache"), *options], check=True, capture_output=True,
                              text=True).stdout
        user = "user www-data;\n" if os.geteuid() == 0 else ""
        for name, content in (("oculora.conf", text), ("nginx.conf", MAIN.format(dir=self.dir, user=user))):
            with open(os.path.join(self.dir, name), "w") as file:
                file.write(content)
        nginx = shutil.which("nginx", path=os.environ["PATH"] + ":/usr/sbin")
        self.process = spawn([nginx, "-c", os.path.join(self.dir, "nginx.conf")], stderr=subprocess.DEVNULL)
        pid_file = os.path.join(self.dir, "pid")
        wait_until(lambda: os.path.exists(pid_file) or self.process.poll() is not None, 10, "nginx")
        if self.process.poll() is not None:
            raise AssertionError(f"nginx ended:\n{self.log()}")

    def log(self):
        with open(os.path.join(self.dir, "error.log"), errors="replace") as file:
            return file.read()

    def close(self):
        end(self.process)
        shutil.rmtree(self.dir)
