#!/usr/bin/env python3
"""A process table that changes on command, for comparing incremental and cold scans.

Reads one command a line on stdin and answers "ok" (with a port where one was opened) once the
change is in place:
  spawn NAME          a new idle process NAME
  listen NAME         NAME opens a listening socket on a free loopback port (late, as servers do)
  serve NAME          a new process NAME that listens at once
  pool NAME N         NAME forks N workers that share its listening socket
  pass FROM TO        FROM hands its listening socket to TO over a Unix socket and closes its own
  lend FROM TO        the same, but FROM keeps its own
  close NAME          NAME closes its listening socket
  exit NAME           NAME (and its workers) exit
Everything started ends when stdin closes.
"""
import os
import signal
import socket
import sys


class Child:
    def __init__(self, name, listen_now=False):
        self.orders, child_end = socket.socketpair()
        self.workers = []
        self.pid = os.fork()
        if self.pid == 0:
            self.orders.close()
            serve(child_end, listen_now)
            os._exit(0)
        child_end.close()

    def ask(self, line, fds=()):
        socket.send_fds(self.orders, [line.encode()], list(fds))
        return self.orders.recv(256).decode()


def serve(orders, listen_now):
    server = None
    if listen_now:
        server = listening()
        orders.send(str(server.getsockname()[1]).encode())
    workers = []
    while True:
        message, fds, _, _ = socket.recv_fds(orders, 256, 4)
        words = message.decode().split()
        if not words:
            break
        if words[0] == "listen":
            server = listening()
            orders.send(str(server.getsockname()[1]).encode())
        elif words[0] == "pool":
            for _ in range(int(words[1])):
                pid = os.fork()
                if pid == 0:
                    signal.pause()
                    os._exit(0)
                workers.append(pid)
            orders.send(b"ok")
        elif words[0] == "give":
            socket.send_fds(orders, [b"fd"], [server.fileno()])
            if words[1] == "close":
                server.close()
                server = None
        elif words[0] == "take":
            server = socket.socket(fileno=fds[0])
            orders.send(b"ok")
        elif words[0] == "close":
            server.close()
            server = None
            orders.send(b"ok")
    # Gone before the exit is answered, so both scans after it see the same table.
    for pid in workers:
        os.kill(pid, signal.SIGTERM)
        os.waitpid(pid, 0)


def listening():
    server = socket.socket()
    server.bind(("127.0.0.1", 0))
    server.listen()
    return server


def main():
    children = {}
    for line in sys.stdin:
        words = line.split()
        command, name = words[0], words[1]
        answer = "ok"
        if command == "spawn":
            children[name] = Child(name)
        elif command == "serve":
            children[name] = Child(name, listen_now=True)
            answer = "ok " + children[name].orders.recv(256).decode()
        elif command == "listen":
            answer = "ok " + children[name].ask("listen")
        elif command == "pool":
            children[name].ask("pool " + words[2])
        elif command in ("pass", "lend"):
            giver, taker = children[name], children[words[2]]
            socket.send_fds(giver.orders, [b"give close" if command == "pass" else b"give keep"], [])
            _, fds, _, _ = socket.recv_fds(giver.orders, 256, 1)
            taker.ask("take", fds)
            os.close(fds[0])
        elif command == "close":
            children[name].ask("close")
        elif command == "exit":
            child = children.pop(name)
            child.orders.send(b" ")
            os.waitpid(child.pid, 0)
        print(answer, flush=True)
    for child in children.values():
        child.orders.send(b" ")
        os.waitpid(child.pid, 0)


if __name__ == "__main__":
    main()
