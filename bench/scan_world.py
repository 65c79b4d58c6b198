#!/usr/bin/env python3
"""Builds a desktop-sized process table for the scan benchmark, then waits until interrupted.

Starts PROCESSES idle processes that each hold DESCRIPTORS open descriptors (files, pipes and
connected sockets, as editors and browsers do), plus LISTENERS processes that listen on loopback
TCP ports, some of them as forked worker pools sharing one socket. Everything it starts ends
with it (SIGTERM or Ctrl-C).
"""
import argparse
import os
import signal
import socket
import sys
import time


def hold(descriptors):
    held = []
    kind = 0
    while len(held) < descriptors:
        kind = (kind + 1) % 4
        if kind == 0:
            held.append(os.open("/dev/null", os.O_RDONLY))
        elif kind == 1:
            r, w = os.pipe()
            held += [r, w]
        elif kind == 2:
            a, b = socket.socketpair()
            held += [a.detach(), b.detach()]
        else:
            held.append(os.open("/proc/self/stat", os.O_RDONLY))
    return held


def child(body):
    pid = os.fork()
    if pid == 0:
        signal.signal(signal.SIGTERM, signal.SIG_DFL)
        try:
            body()
            while True:
                signal.pause()
        finally:
            os._exit(0)
    return pid


def listener(port, workers):
    def body():
        server = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        server.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        server.bind(("127.0.0.1", port))
        server.listen()
        server.detach()  # stays open for this process and the workers it forks
        for _ in range(workers):
            child(lambda: None)
    return body


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--processes", type=int, default=400)
    parser.add_argument("--descriptors", type=int, default=32)
    parser.add_argument("--listeners", type=int, default=12)
    parser.add_argument("--base-port", type=int, default=43100)
    parser.add_argument("--ready-file", help="written once everything is started")
    args = parser.parse_args()

    os.setpgrp()
    children = []

    def stop(*_):
        os.killpg(0, signal.SIGTERM)

    signal.signal(signal.SIGTERM, lambda *_: (signal.signal(signal.SIGTERM, signal.SIG_IGN), stop(), sys.exit(0)))
    signal.signal(signal.SIGINT, lambda *_: (signal.signal(signal.SIGTERM, signal.SIG_IGN), stop(), sys.exit(0)))

    for _ in range(args.processes):
        children.append(child(lambda: hold(args.descriptors)))
    for i in range(args.listeners):
        children.append(child(listener(args.base_port + i, workers=3 if i % 4 == 0 else 0)))

    time.sleep(0.5)
    if args.ready_file:
        with open(args.ready_file, "w") as ready:
            ready.write(f"{len(children)}\n")
    print(f"scan world: {args.processes} idle processes x {args.descriptors} descriptors, "
          f"{args.listeners} listeners from port {args.base_port}", flush=True)
    while True:
        signal.pause()


if __name__ == "__main__":
    main()
