# TCP sockets: a client and a server of one thread.

class startup_custom:

interpreter("load", fs("get_env", "QUILL_CHECK"))
from check import *
import ipe.socket
import ipe.serversocket
import ipe.ifilestream

server = ipe.serversocket.create(0, 8, "127.0.0.1")
same("address", server.address, "127.0.0.1")
same("the system chose a port", type(server.port), "IntType")
client = ipe.socket.create("127.0.0.1", server.port)
served = server.accept(timeout = 300)
same("peer", [client.get_address(), served.get_address()], ["127.0.0.1", "127.0.0.1"])
same("type", [type(server), type(client), type(client.get_istream()), type(client.get_ostream())], ["ServerSocket", "Socket", "IStream", "OStream"])
same("text", str(client)[0:11], "Socket (id=")

# Lines
ask = client.get_ostream()
answers = client.get_istream()
requests = served.get_istream()
reply = served.get_ostream()
ask("GET ", "/", 1, "\r\n", flush = 1)
same("a line", requests(), "GET /1")
ask("one\ntwo\r\n\nrest")
ask(flush = 1)
same("several lines of one flush", [requests(), requests(), requests(), requests(bytes = 4)], ["one", "two", "", "rest"])
same("no bytes", requests(bytes = 0), "")
ask("12345\n123456\n", flush = 1)
same("a line of the limit", requests(maxlength = 5), "12345")
def limited():
    return requests(maxlength = 5)

fault("a longer one", "IOLineLengthError: readline > maxlength", limited)
requests()
reply("never")
reply.reset()
reply("later\n")
reply.insert("now\n")
reply(flush = 1)
same("insert overtakes, reset drops", [answers(), answers()], ["now", "later"])
fault("seekp", "RuntimeError: seekp is not supported on socket streams", reply.seekp, 0)

def timed_out():
    try:
        requests()
    except WSAETIMEDOUT, e:
        return [e.numbers["errno"], e.strings["function"], e.decode]
    return None

same("timeout", timed_out(), [10060, "recv", "Connection timed out"])
ask("a", flush = 1)
fault_class("a line without end", "WSAETIMEDOUT", requests)
ask("b\n", flush = 1)
same("what came before the timeout is gone", requests(), "b")
ask("x" * 140000, "\n", flush = 1)

def one_read():
    return requests(maxloops = 1)

fault("a line in two reads", "IOLineLoopsError: loops > maxloops", one_read)
requests()

# Base64 and files
reply.sendbase64("aGVsbG8=", {"Content-Type": "text/plain"}, writecontentlength = 1)
same("sendbase64", [answers(), answers(), answers(), answers(bytes = 5)], ["Content-Type: text/plain", "Content-Length: 5", "", "hello"])
reply.sendbase64("Cg==")
same("without headers", answers(), "")
fault_class("no Base64", "ValueError", reply.sendbase64, "?")
path = fs("get_env", "QUILL_SCRATCH") + "/sent"
file = open(path, "w")
for i in range(0, 3000):
    file.write("line " + str(i) + "\n")
file.close()
size = 0
for i in range(0, 3000):
    size = size + len("line " + str(i) + "\n")

def received():
    got = 0
    count = 0
    while got < size:
        got = got + len(answers()) + 1
        count = count + 1
    return [count, got]

file = open(path)
file.readline()
reply.sendfile(file)
file.close()
same("sendfile of a file object", received(), [3000, size])
stream = ipe.ifilestream.create(path)
stream()
reply.sendfile(stream)
same("sendfile of a stream", received(), [3000, size])
fault("sendfile of something else", "RuntimeError: Object is not an file instance", reply.sendfile, "text")

# The end
ask("last", flush = 1)
client.close()
fault("closed here", "ValueError: I/O operation on closed socket", client.get_address)
same("the last line", requests(), "last")
same("the end", requests(), "")
fault("beyond it", "RuntimeError: the connection has been closed", requests)
reply("nobody reads", shutdown = 1)
fault("writing after shutdown", "RuntimeError: Socket is closed!", reply.insert, "x")
served.close()
again = ipe.socket.create("127.0.0.1", server.port)
reader = server.accept(linger = (1, 2), shutdown = 1, timeout = 1000).get_istream()
writer = again.get_ostream()
writer("x\ny", flush = 1)
again.close()
same("readlines", reader.readlines(), ["x", "y"])
again = ipe.socket.create("127.0.0.1", server.port)
reader = server.accept(timeout = 1000).get_istream()
writer = again.get_ostream()
writer("part", flush = 1)
again.close()
def whole():
    return reader(assertoneof = 1)

fault("no line end", "IOReachedEOFError: Reached EOF without seeing the CRLF", whole)

# Failures of calls
port = server.port
fault("a taken port", "WSAEADDRINUSE: Address already in use", ipe.serversocket.create, port, 1, "127.0.0.1")
server = None
fault("nobody listens", "WSAECONNREFUSED: Connection refused", ipe.socket.create, "127.0.0.1", port)
fault("no host", "WSAHOST_NOT_FOUND: Host not found", ipe.socket.create, "", 1)
fault("no port", "WSAEINVAL: Invalid argument", ipe.socket.create, "127.0.0.1", 70000)
fault("arguments", "TypeError: create requires 2 arguments, 1 given", ipe.socket.create, "x")
same("addresses", type(global_get("ipaddress_list")), "ListType")
