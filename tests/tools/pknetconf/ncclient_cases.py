#!/usr/bin/python3
"""ncclient against pknetconf beside the service (without -c): ncclient_cases.py SERVICE_PID ALD... -- PKNETCONF...
The ALDs, aldsim's descriptions, get addresses 1, 2, ... Prints each failed check and 'N passed, N failed'."""
import base64, ctypes, os, re, signal, struct, subprocess, sys, time
from concurrent.futures import ThreadPoolExecutor
import paramiko
from ncclient import manager
from ncclient.operations.rpc import RPCError
from ncclient.transport.errors import AuthenticationError
from ncclient.xml_ import to_ele
from lxml import etree

ALD_NS, PORT_NS = 'urn:o-ran:ald:1.0', 'urn:o-ran:ald-port:1.0'
PORT_STATE = '<ald-ports-io xmlns="%s"><ald-port><name>/tmp/ttyALD</name><port-id>0</port-id></ald-port></ald-ports-io>' % PORT_NS
service_pid, rest = int(sys.argv[1]), sys.argv[2:]
alds, command = rest[:rest.index('--')], rest[rest.index('--') + 1:]
uids = [re.search('uid=([^,]+)', a).group(1).encode() for a in alds]
tilts = [round(10 * float((re.findall('tilt=([^,]+)', a) or ['0'])[0])) for a in alds]
results = {'passed': 0, 'failed': 0}

def check(what, got, want):
    results['passed' if got == want else 'failed'] += 1
    if got != want:
        print('FAILED %s: got %r, want %r' % (what, got, want), flush=True)

def connect(key='client', user='oran'):
    return manager.connect(host='127.0.0.1', port=830, username=user, key_filename=key, hostkey_verify=False,
                           allow_agent=False, look_for_keys=False, timeout=30)

def login(key, user):
    try:
        return connect(key, user).close_session() and 'accepted'
    except AuthenticationError:
        return 'refused'

def ald(session, frame, port=0):
    """One ald-communication: its output leaves, the reply frame decoded."""
    reply = session.dispatch(to_ele('<ald-communication xmlns="%s"><port-id>%d</port-id><ald-req-msg>%s</ald-req-msg>'
                                    '</ald-communication>' % (ALD_NS, port, base64.b64encode(frame).decode())))
    out = {e.tag.split('}')[1]: e.text for e in to_ele(reply.xml)}
    out['frame'] = list(base64.b64decode(out.get('ald-resp-msg') or ''))
    return out

def state(session, subtree=None):
    data = session.get(filter=('subtree', subtree) if subtree else None).data_ele
    return re.sub(r'>\s+<', '><', ''.join(etree.tostring(child).decode() for child in data)).strip()

class Link:
    """One ALD's link as the client keeps it: its address, N(S) and N(R)."""
    def __init__(self, session, address):
        self.session, self.address, self.ns, self.nr = session, address, 0, 0

    def open(self, uid=None):
        """The address to the UID by XID, if given, then SNRM: N(S) and N(R) start at 0."""
        if uid:
            pi = bytes([1, len(uid)]) + uid + bytes([2, 1, self.address])
            out = ald(self.session, bytes([0xFF, 0xBF, 0x81, 0xF0, len(pi)]) + pi)
            check('XID to %s' % uid, out['frame'][:2], [self.address, 0xBF])
        check('SNRM to %d' % self.address, ald(self.session, bytes([self.address, 0x93]))['frame'], [self.address, 0x73])
        self.ns = self.nr = 0

    def i_frame(self, info):
        return bytes([self.address, self.nr << 5 | 0x10 | self.ns << 1]) + info

    def tilt(self, sub=1):
        """getTilt: the tilt in tenths of a degree, or None unless the reply is getTilt's of this sub-unit
        with the next N(S) and N(R)."""
        out = ald(self.session, self.i_frame(bytes([0x82, 1, 0, sub])))
        self.ns = (self.ns + 1) % 8
        ok = out['frame'][:7] == [self.address, self.ns << 5 | 0x10 | self.nr << 1, 0x82, 4, 0, sub, 0]
        self.nr = (self.nr + 1) % 8
        return out, int.from_bytes(bytes(out['frame'][7:9]), 'little', signed=True) if ok else None

def queued(key='0x00400004'):
    lines = subprocess.run(['ipcs', '-q'], capture_output=True, text=True).stdout.splitlines()
    return [int(l.split()[5]) for l in lines if l.startswith(key)]

def enqueue(frame):
    """A request of another M-Plane peer (type 1, tag 0) on the service's command queue."""
    libc = ctypes.CDLL(None, use_errno=True)
    text = struct.pack('=BB128sIIII', 0, 0, b'', 0, 0, 0, len(frame)) + frame.ljust(16, b'\0')
    check('enqueued', libc.msgsnd(libc.msgget(0x400004, 0), struct.pack('l', 1) + text, len(text), 0), 0)

for name in ('stranger', 'client'):
    key = paramiko.ECDSAKey.generate()
    key.write_private_key_file(name)
open('authorized_keys', 'w').write('# the test client\n%s %s test\n' % (key.get_name(), key.get_base64()))
log = open('pknetconf.log', 'w')
server = subprocess.Popen(command + ['--authorized-keys', 'authorized_keys', '--host-key', 'host_key'],
                          stdout=log, stderr=subprocess.STDOUT)
while 'listening' not in open('pknetconf.log').read() and server.poll() is None:
    time.sleep(0.1)
check('host key made, owner only', oct(os.stat('host_key').st_mode & 0o777), '0o600')

m = connect()
caps = [c for c in m.server_capabilities if 'module=o-ran-ald' in c]
check('hello', sorted(c.split('?')[0] for c in caps), ['urn:o-ran:ald-port:1.0', 'urn:o-ran:ald:1.0'])
check('get-schema', 'rpc ald-communication' in m.get_schema('o-ran-ald').data, True)
for subtree, want in [(None, PORT_STATE), ('<ald-ports-io xmlns="%s"/>' % PORT_NS, PORT_STATE),
                      ('<ald-ports-io xmlns="%s"><ald-port><port-id/></ald-port></ald-ports-io>' % PORT_NS, PORT_STATE),
                      ('<ald-ports-io xmlns="%s"><ald-port><name>other</name></ald-port></ald-ports-io>' % PORT_NS, ''),
                      ('<netconf-state xmlns="urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring"/>', '')]:
    check('get %s' % subtree, state(m, subtree), want)
check('logins of a stranger, of root', [login('stranger', 'oran'), login('client', 'root')], ['refused'] * 2)

links = [Link(m, n + 1) for n in range(len(uids))]
for link, uid in zip(links, uids):
    link.open(uid)
(first, tilt), (second, again) = links[0].tilt(), links[0].tilt()
check('getTilt to ALD 1', [tilt, again], [tilts[0]] * 2)
check('counters', [second[k] for k in ('frames-with-wrong-crc', 'frames-without-stop-flag')], ['0', '0'])
check('octets counted', int(second['number-of-received-octets']) - int(first['number-of-received-octets']), 13)
for frame, want in [(bytes([0x30, 0x93]), 'ALD reply time out.'), (bytes(1200), 'The HDLC packet is incorrect.')]:
    out = ald(m, frame)
    check('%d bytes to %d' % (len(frame), frame[0]), (out['status'], out.get('error-message')), ('REJECTED', want))
# With the service stopped: nothing that is refused reaches its queue, and what times out is taken back.
os.kill(service_pid, signal.SIGSTOP)
def refusal(frame, port=0):
    try:
        return ald(m, frame, port)['status']
    except RPCError as error:
        return error.tag, queued()
check('port-id 7, 1201 bytes', [refusal(b'\x01\x93', 7), refusal(bytes(1201))],
      [('invalid-value', [0]), ('operation-failed', [0])])
start = time.monotonic()
out = ald(m, links[0].i_frame(bytes([0x81, 3, 0, 1, 90, 0])))
check('setTilt with the service stopped', (out['status'], 'withdrawn' in out['error-message'], queued(),
                                           3 <= time.monotonic() - start < 6), ('REJECTED', True, [0], True))
check('get with the service stopped', state(m), PORT_STATE)
os.kill(service_pid, signal.SIGCONT)
time.sleep(1.5)
check('tilt after the withdrawn setTilt', links[0].tilt()[1], tilts[0])
# Four requests of another peer ahead, each waiting out its second: their replies and the late one
# of the request that timed out behind them go to no caller.
for _ in range(4):
    enqueue(bytes([0x30, 0x93]))
late = ald(m, bytes([2, 0x93]))
check('behind a busy service', (late['status'], late['error-message'][-21:]), ('REJECTED', 'had taken the request'))
check('the next reply is its own', links[0].tilt()[1], tilts[0])

def session_of(link):
    """A session of its own for one ALD, 25 getTilts: each reply must be its own request's."""
    with connect() as own:
        link.session = own
        link.open()
        return [link.tilt()[1] for _ in range(25)]
with ThreadPoolExecutor(len(links)) as sessions:
    check('sessions at once', list(sessions.map(session_of, links)), [[tilt] * 25 for tilt in tilts])
m.close_session()
server.send_signal(signal.SIGTERM)
check('pknetconf ends on SIGTERM', server.wait(10), 0)
print('%d passed, %d failed' % (results['passed'], results['failed']))
sys.exit(1 if results['failed'] else 0)
