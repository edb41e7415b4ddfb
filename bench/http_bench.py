"""katd-http, compared with its HTTP server alone, which does not ask katd."""

import os
import re
import resource
import subprocess
import tempfile
import time

from programs import CORES, ONE_CORE, BenchError, Client, Katd, Server, in_environment, run
from report import alternate

SETTINGS = """[katd-http]
listen = 127.0.0.1:0
socket = {socket}
policies = bench
[policy bench]
proxy = nginx
allow = 0-255
on_unknown = pass
"""

# For wrk: each request asks for another URL. `body` is the number of URLs in a POST; 0: one in a header.
SCRIPT = """
local urls = {{}}
for line in io.lines("{questions}") do
  urls[#urls + 1] = line:match("\\t(.*)")
  if #urls == 100000 then break end
end
local at = 0
local function next_url()
  at = at % #urls + 1
  return urls[at]
end
local body = {body}
request = function()
  if body == 0 then
    return wrk.format("GET", "{path}", {{["X-Original-URL"] = next_url()}})
  end
  local list = {{}}
  for i = 1, body do list[i] = '"' .. next_url() .. '"' end
  return wrk.format("POST", "/v1/categories", {{}}, "[" .. table.concat(list, ",") .. "]")
end
"""


class Http(Server):
    """katd-http in front of a katd, or the baseline server without one; `address` is where it serves."""

    def __init__(self, builds, katd=None, cores=None):
        self.folder = tempfile.mkdtemp(prefix="katd-bench-")
        output = os.path.join(self.folder, "output")
        if katd is None:
            command = [builds.program("bench/http_baseline")]
        else:
            settings = os.path.join(self.folder, "http.ini")
            with open(settings, "w", encoding="ascii") as file:
                file.write(SETTINGS.format(socket=katd.socket))
            command = [builds.program("gateway/katd-http"), "--settings", settings]
        with open(output, "wb") as file:
            super().__init__(command, None, ONE_CORE if cores is None else cores, in_environment(KATD_DIR="/"), file)
        limit = time.monotonic() + 10
        self.address = None
        while self.address is None:
            with open(output, encoding="utf-8") as file:
                found = re.search(r"listening on (http://\S+?)/?\s", file.read())
            self.address = found and found.group(1)
            if self.process.poll() is not None or time.monotonic() > limit:
                raise BenchError("katd-http does not serve")
            time.sleep(0.01)


class Load:
    """wrk with 64 connections. What it asks for is in a script."""

    def __init__(self, bench, questions, path="/v1/auth/bench", body=0):
        self.script = os.path.join(bench.data, f"http-{body}.lua")
        self.seconds = str(max(1, round(bench.seconds)))
        self.per_request = max(body, 1)
        with open(self.script, "w", encoding="ascii") as file:
            file.write(SCRIPT.format(questions=os.path.abspath(questions), path=path, body=body))

    def command(self, server, cores, seconds=None):
        return cores + ["wrk", "-t1", "-c64", "-d" + (seconds or self.seconds) + "s", "--latency", "-s", self.script,
                        server.address]

    def result(self, output):
        if "Non-2xx" in output or "Socket errors" in output:
            raise BenchError("katd-http has refused a request: " + output)
        p99, unit = re.search(r"99%\s+([0-9.]+)(us|ms|s)", output).groups()
        return {"rate": float(re.search(r"Requests/sec:\s+([0-9.]+)", output).group(1)) * self.per_request,
                "requests": int(re.search(r"(\d+) requests in", output).group(1)),
                "p99_us": float(p99) * {"us": 1, "ms": 1e3, "s": 1e6}[unit]}

    def ask(self, server, cores=None, behind=()):
        """The measurement; behind: the servers that the server asks, whose processor time counts with --cpu."""
        def cpu():
            used = resource.getrusage(resource.RUSAGE_CHILDREN)
            return used.ru_utime + used.ru_stime + sum(each.cpu_seconds() for each in (server, *behind))

        before = cpu()
        result = self.result(run(self.command(server, ONE_CORE if cores is None else cores)))
        if Client.by_cpu:
            result["rate"] = result["requests"] * self.per_request / (cpu() - before)
        return result


def run_http(bench, report):
    questions = bench.builds.questions(bench.sizes["small"])
    auth = Load(bench, questions)
    post = Load(bench, questions, body=100)
    with Katd(bench.builds, bench.sizes["small"]) as katd, Http(bench.builds, katd) as http, \
            Http(bench.builds) as baseline:
        results = alternate("http", {
            "auth": lambda: auth.ask(http, behind=[katd])["rate"],
            "baseline": lambda: auth.ask(baseline)["rate"],
            "post": lambda: post.ask(http, behind=[katd])["rate"],
        }, bench.rounds)
    report.compare("64 connections, /v1/auth : the same server without a question", results, "auth", "baseline", 0.6,
                   judged=bench.judges)
    report.compare("64 connections, URLs a second, 100 in a POST : one in a request", results, "post", "auth", 10,
                   judged=bench.judges)

    items = bench.sizes["large"]
    questions = bench.builds.questions(items)
    auth = Load(bench, questions)
    with Katd(bench.builds, items, cores=CORES) as katd, Http(bench.builds, katd, CORES) as http:
        def during_reload():
            with subprocess.Popen(auth.command(http, CORES), stdout=subprocess.PIPE, text=True) as busy:
                time.sleep(0.1)
                katd.reload()
                return auth.result(busy.communicate()[0])["p99_us"]

        results = alternate(f"http, reload of {items:,} items", {
            "reload": during_reload,
            "quiet": lambda: auth.ask(http, CORES)["p99_us"],
        }, bench.rounds)
        report.compare(f"{items:,} items, two cores, p99 during a reload : quiet", results, "reload", "quiet", 2.0, "us",
                       bench.judges, least=False)
    with Katd(bench.builds, 0) as katd, Http(bench.builds, katd) as http:
        run(auth.command(http, ONE_CORE, "1"))
        before = http.memory("VmRSS")
        requests = 0
        while requests < (1000 if bench.quick else 1000000):
            requests += auth.ask(http)["requests"]
        report.add(f"resident memory after {requests:,} more requests : before", [http.memory("VmRSS") / before], 1.1,
                   least=False, measured=f"{http.memory('VmRSS'):,} : {before:,} KiB", judged=bench.judges)
