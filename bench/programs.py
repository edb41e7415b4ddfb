"""The programs that a run starts: list generator, katd, ideal servers, load client."""

import json
import os
import shutil
import signal
import subprocess
import tempfile
import time

ONE_CORE = ["taskset", "-c", "0"]
CORES = []  # no pinning

SETTINGS = """[katd]
data_conn_string = s
server_address = localhost
conn_pool_size = 4
ctengine_query_timeout = 20
query_retry_times = 0
query_retry_interval = 1
cache_file = cache
max_cache_entries = 0
save_cache_interval = 24
log_level = {level}
log_file_path = {log}
"""


class BenchError(Exception):
    """Ends the run; the message is one sentence."""


def run(command, **options):
    """The standard output of a command that must succeed."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, **options)
    if done.returncode != 0:
        raise BenchError(f"{' '.join(map(str, command))}: {(done.stderr or done.stdout).strip()[-600:]}")
    return done.stdout


def in_environment(**variables):
    return {**os.environ, **variables}


class Builds:
    """Locates programs and lists. Lists, clients and micro-benchmarks come from the 64-bit build."""

    def __init__(self, build64, build32, data):
        self.builds = {64: build64, 32: build32}
        self.data = data

    def program(self, name, bits=64):
        path = os.path.join(self.builds[bits], name)
        if not os.path.exists(path):
            raise BenchError(f"there is no {path}: build it first, ./bench.sh does")
        return path

    def list_file(self, kind, items):
        """The path of a list, "urls" or "domains"; made if necessary. PATH.questions has its questions."""
        folder = os.path.join(self.data, "lists")
        os.makedirs(folder, exist_ok=True)
        path = os.path.join(folder, f"{kind}-{items}")
        generator = self.program("bench/generate_list")
        if self.is_older(path, "bench/generate_list"):
            seed = 1 if kind == "urls" else 2
            run([generator, f"--{kind}", "--items", str(items), "--seed", str(seed), "-o", path + ".new",
                 "--questions", path + ".questions"])
            os.rename(path + ".new", path)
        return path

    def questions(self, items):
        """Hosts of the domain list, each of which is searched for in both lists."""
        return self.list_file("domains", items) + ".questions"

    def is_older(self, path, program):
        """Whether the file was made before the program, or is not there."""
        return not os.path.exists(path) or os.path.getmtime(path) < os.path.getmtime(self.program(program))


class Server:
    """A server process; `socket` is where it serves. Killed at the end of its `with`."""

    def __init__(self, command, socket, cores, env=None, output=subprocess.DEVNULL):
        self.socket = socket
        self.process = subprocess.Popen(cores + command, env=env, stdin=subprocess.DEVNULL, stdout=output,
                                        stderr=subprocess.STDOUT)

    @property
    def pid(self):
        return self.process.pid

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        self.process.kill()
        self.process.wait()

    def memory(self, field):
        """A field of /proc/PID/status, in KiB."""
        with open(f"/proc/{self.pid}/status", encoding="ascii") as file:
            for line in file:
                if line.startswith(field + ":"):
                    return int(line.split()[1])
        raise BenchError(f"/proc/{self.pid}/status has no {field}")

    def private_memory(self):
        """The memory that only this process has and has written to, in KiB: without mapped files."""
        with open(f"/proc/{self.pid}/smaps_rollup", encoding="ascii") as file:
            return next(int(line.split()[1]) for line in file if line.startswith("Private_Dirty:"))

    def cpu_seconds(self):
        """Its processor time, in units of 10 ms."""
        with open(f"/proc/{self.pid}/stat", encoding="ascii") as file:
            fields = file.read().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


class Ideal(Server):
    def __init__(self, builds, reads=2, writes=2, engine_rules=None, bits=64):
        self.folder = tempfile.mkdtemp(prefix="katd-bench-")
        socket = os.path.join(self.folder, "s")
        command = [builds.program("bench/ideal_server", bits), socket]
        env = None
        if engine_rules is None:
            command += ["--reads", str(reads), "--writes", str(writes)]
        else:
            command += ["--engine"]
            env = in_environment(ASAPSDK_RULES=engine_rules) if engine_rules else None
        super().__init__(command, socket, ONE_CORE, env)
        limit = time.monotonic() + 10
        while not os.path.exists(socket):
            if self.process.poll() is not None or time.monotonic() > limit:
                raise BenchError("the ideal server does not listen")
            time.sleep(0.01)

    def __exit__(self, *exception):
        super().__exit__()
        shutil.rmtree(self.folder, ignore_errors=True)


class Katd(Server):
    """katd in a home of its own, with a URL list and a domain list of this many items; 0: none. With a catalogue
    it has the engine that answers from it, else the stand-in."""

    count = 0

    def __init__(self, builds, items, bits=64, cores=None, level="error", engine_rules=None, url_items=None,
                 catalog=None):
        Katd.count += 1
        self.builds = builds
        self.home = tempfile.mkdtemp(prefix="katd-bench-")
        self.log = f"katd-bench-{os.getpid()}-{Katd.count}.log"
        os.makedirs(os.path.join(self.home, "conf"))
        settings = SETTINGS.format(level=level, log=self.log)
        for kind, size in (("urls", items if url_items is None else url_items), ("domains", items)):
            if size:
                os.symlink(os.path.abspath(builds.list_file(kind, size)), os.path.join(self.home, kind))
                settings += f"{kind}_list_path = {kind}\n"
        with open(os.path.join(self.home, "conf/katd.ini"), "w", encoding="ascii") as file:
            file.write(settings)
        self.env = in_environment(KATD_DIR=self.home)
        if engine_rules:
            self.env["ASAPSDK_RULES"] = engine_rules
        if catalog:
            engine = builds.program("engine/catalog/libasapsdk.so", bits)
            self.env["LD_LIBRARY_PATH"] = os.path.dirname(os.path.abspath(engine))
            with open(os.path.join(self.home, "conf/catalog.ini"), "w", encoding="ascii") as file:
                file.write(f"[catalog]\ncatalog_path = {os.path.abspath(catalog)}\n")
        with open(os.path.join(self.home, "output"), "wb") as output:
            super().__init__([builds.program("daemon/katd", bits)], os.path.join(self.home, "s"),
                             ONE_CORE if cores is None else cores, self.env, output)
        limit = time.monotonic() + 60
        while not os.path.exists(self.socket):
            if self.process.poll() is not None or time.monotonic() > limit:
                raise BenchError("katd does not listen: " + self.messages())
            time.sleep(0.02)

    def messages(self):
        text = ""
        for name in ("output", self.log):
            path = os.path.join(self.home, name)
            if os.path.exists(path):
                with open(path, encoding="utf-8", errors="replace") as file:
                    text += file.read()
        return text[-600:]

    def reload(self):
        """Returns when the new lists are in use."""
        run([self.builds.program("client/katc"), "ctl", "reload"], env=self.env)

    def __exit__(self, *exception):
        super().__exit__()
        shutil.rmtree(self.home, ignore_errors=True)
        for ending in (".lock", ".rlock"):
            if os.path.exists(f"/tmp/{self.log}{ending}"):
                os.remove(f"/tmp/{self.log}{ending}")


class Client:
    """The load client."""

    by_cpu = False  # rates per second of processor time of client, helper and server

    def __init__(self, builds, seconds, warm_up, cores=None):
        warm_up = 0 if self.by_cpu else warm_up
        self.command = (ONE_CORE if cores is None else cores) + [builds.program("bench/load_client")]
        self.seconds = ["--seconds", str(seconds), "--warm-up", str(warm_up)]

    def ask(self, server, questions, connections=1, window=1, options=()):
        """The measurement as a dictionary. A wrong answer ends the run."""
        command = self.command + [server.socket, "--questions", questions, "--connections", str(connections),
                                  "--window", str(window)] + self.seconds + list(options)
        return self.measure(command, server)

    def ask_helper(self, helper, questions, window, server=None):
        """The same through a helper; server: the server behind the helper, if any."""
        command = self.command + ["--questions", questions, "--window", str(window)] + self.seconds
        return self.measure(command + ["--helper"] + helper, server)

    def measure(self, command, server):
        before = server.cpu_seconds() if server else 0
        result = json.loads(run(command).splitlines()[-1])
        if self.by_cpu:
            used = result["cpu_seconds"] + (server.cpu_seconds() - before if server else 0)
            result["rate"] = result["requests"] / max(used, 0.01)
        return result

    def start(self, server, questions, connections, idle=0):
        """Returns a client that asks until finish(), and the number of idle connections that it holds."""
        command = self.command + [server.socket, "--questions", questions, "--connections", str(connections),
                                  "--seconds", "3600", "--warm-up", "0", "--idle", str(idle)]
        process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        line = process.stdout.readline()
        if not line:
            raise BenchError(process.communicate()[1].strip())
        return process, json.loads(line)["idle"]

    @staticmethod
    def finish(process):
        process.send_signal(signal.SIGTERM)
        output, errors = process.communicate()
        if process.returncode != 0:
            raise BenchError(errors.strip())
        return json.loads(output.splitlines()[-1])


class IdleConnections:
    """Idle connections for the duration of a `with`; `held` is their number."""

    def __init__(self, client, server, questions, count):
        self.process, self.held = client.start(server, questions, 0, count)

    def __enter__(self):
        return self

    def __exit__(self, *exception):
        self.process.terminate()
        self.process.communicate()
