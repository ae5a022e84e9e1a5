"""A stock ZeroMQ socket, driven from outside: obeys each line of the standard input, and answers it with one line.

    stock_peer.py KIND ENDPOINT     binds a socket of that kind, or connects a SUB that subscribes to everything, and
                                    says its endpoint

    send HEX        ok
    receive         HEX, of the message's only part
    quit            ok, the last answer
"""

import sys

import zmq


def main(kind, endpoint):
    with zmq.Context() as context, context.socket(getattr(zmq, kind)) as stock:
        # Sends all messages that it was told to send, as long as there is a peer.
        stock.linger = 10000
        stock.sndhwm = 0
        if kind == "SUB":
            stock.subscribe(b"")
            stock.connect(endpoint)
        else:
            stock.bind(endpoint)
        print(stock.last_endpoint.rstrip(b"\0").decode(), flush=True)
        for line in sys.stdin:
            command, *words = line.split()
            answer = "ok"
            if command == "send":
                stock.send(bytes.fromhex("".join(words)))
            elif command == "receive":
                answer = stock.recv().hex()
            elif command == "quit":
                break
            print(answer, flush=True)
    print("ok", flush=True)


if __name__ == "__main__":
    main(*sys.argv[1:])
