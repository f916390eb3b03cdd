#!/usr/bin/python3
"""The NETCONF road of the bench, run by `pkbench --part netconf` beside the service and the simulator.

usage: netconfRoad.py COUNT UID PKNETCONF...
Starts pknetconf with a key of its own, gives the ALD of UID address 1, opens
its link, and then times COUNT pairs (after 5 of warm-up): an ald-communication
with a getTilt I-frame, and an empty RPC of the same client (a get whose
filter selects nothing). Prints 'pair ALD_MS EMPTY_MS' per pair, then 'done'.
"""
import base64, subprocess, sys, time
import paramiko
from ncclient import manager
from ncclient.xml_ import to_ele

count, uid, command = int(sys.argv[1]), sys.argv[2].encode(), sys.argv[3:]
key = paramiko.ECDSAKey.generate()
key.write_private_key_file('client')
open('authorized_keys', 'w').write('%s %s\n' % (key.get_name(), key.get_base64()))
server = subprocess.Popen(command + ['--authorized-keys', 'authorized_keys', '--host-key', 'host_key'],
                          stdout=subprocess.DEVNULL)
for _ in range(50):
    try:
        m = manager.connect(host='127.0.0.1', port=830, username='oran', key_filename='client', hostkey_verify=False,
                            allow_agent=False, look_for_keys=False)
        break
    except Exception:
        time.sleep(0.2)
else:
    sys.exit('error: no NETCONF session')

def ald(*frame):
    reply = m.dispatch(to_ele('<ald-communication xmlns="urn:o-ran:ald:1.0"><port-id>0</port-id><ald-req-msg>%s'
                              '</ald-req-msg></ald-communication>' % base64.b64encode(bytes(frame)).decode()))
    out = {e.tag.split('}')[1]: e.text for e in to_ele(reply.xml)}
    if out['status'] != 'ACCEPTED':
        sys.exit('error: %s' % out.get('error-message'))
    return base64.b64decode(out['ald-resp-msg'])

ald(0xFF, 0xBF, 0x81, 0xF0, len(uid) + 5, 0x01, len(uid), *uid, 0x02, 0x01, 0x01)
ald(0x01, 0x93)
ns = nr = 0
empty = ('subtree', '<netconf-state xmlns="urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring"/>')
for i in range(5 + count):
    start = time.perf_counter()
    reply = ald(0x01, nr << 5 | 0x10 | ns << 1, 0x82, 0x01, 0x00, 0x01)
    middle = time.perf_counter()
    m.get(filter=empty)
    end = time.perf_counter()
    if reply[1] != ((ns + 1) % 8) << 5 | 0x10 | nr << 1:
        sys.exit('error: control %02X answered by %02X' % (nr << 5 | 0x10 | ns << 1, reply[1]))
    ns, nr = (ns + 1) % 8, (nr + 1) % 8
    if i >= 5:
        print('pair %.3f %.3f' % (1000 * (middle - start), 1000 * (end - middle)), flush=True)
m.close_session()
server.terminate()
server.wait()
print('done', flush=True)
