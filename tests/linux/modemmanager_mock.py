'''ModemManager stand-in for python3-dbusmock (run with --template on this file).

One modem (/org/freedesktop/ModemManager1/Modem/0) with the Modem, Modem3gpp, ModemCdma, Simple,
Messaging, Time and Modem3gpp.ProfileManager interfaces and one SIM. Simple.Connect makes a
bearer with an interface and name servers; Disconnect removes it.

Test controls on org.freedesktop.DBus.Mock of the main object:
  Reset(a{sv})            back to one fresh modem; parameters: "messaging" (b), "profiles" (b),
                          "interface" (s: the bearers' interface), "dns" (as), "modem" (b: false
                          leaves ModemManager without a modem)
  ReceiveSms(s, b) -> o   an SMS arrives; with b false it is still arriving (State "receiving")
  CompleteSms(o)          the arriving SMS is complete (State turns "received")
  ChangeNetworkTime(s)    the network's time changes (NetworkTimeChanged, and GetNetworkTime)
  Fail(s, s)              the next call of a method ("Connect", "Disconnect", "GetNetworkTime",
                          "GetManagedObjects") fails with that D-Bus error name
  Journal() -> as         the data-call methods called so far ("Connect apn=... ip-type=...",
                          "Disconnect /org/...")
'''

import dbus

from dbusmock import MOCK_IFACE, mockobject

BUS_NAME = 'org.freedesktop.ModemManager1'
MAIN_OBJ = '/org/freedesktop/ModemManager1'
MAIN_IFACE = 'org.freedesktop.ModemManager1'
SYSTEM_BUS = True
IS_OBJECT_MANAGER = True

MM = 'org.freedesktop.ModemManager1'
MODEM = MAIN_OBJ + '/Modem/0'
SIM = MAIN_OBJ + '/SIM/0'
STATE_REGISTERED = 8
STATE_CONNECTED = 11

STATE = {'faults': {}, 'journal': [], 'bearers': 0, 'sms': 0, 'time': '2026-03-01T12:00:00+00:00',
         'params': {}}


def _fault(name):
    error = STATE['faults'].pop(name, None)
    if error:
        raise dbus.exceptions.DBusException(f'{name} failed', name=error)


def _modem():
    return mockobject.objects[MODEM]


def _set(obj, iface, name, value):
    obj.UpdateProperties(iface, {name: value})


def _connect(self, props):
    _fault('Connect')
    apn = str(props.get('apn', ''))
    STATE['journal'].append(f'Connect apn={apn} ip-type={int(props.get("ip-type", 0))}')
    path = f'{MAIN_OBJ}/Bearer/{STATE["bearers"]}'
    STATE['bearers'] += 1
    dns = STATE['params'].get('dns', ['192.0.2.53', '192.0.2.54'])
    ip4 = {'method': dbus.UInt32(2), 'address': '10.64.0.2', 'prefix': dbus.UInt32(30),
           'gateway': '10.64.0.1'}
    for i, server in enumerate(dns[:3]):
        ip4[f'dns{i + 1}'] = str(server)
    mockobject.objects[MAIN_OBJ].AddObject(path, MM + '.Bearer', {
        'Interface': STATE['params'].get('interface', 'lo'),
        'Connected': True,
        'Suspended': False,
        'Ip4Config': dbus.Dictionary(ip4, signature='sv'),
        'Ip6Config': dbus.Dictionary({}, signature='sv'),
        'Properties': dbus.Dictionary({'apn': apn}, signature='sv'),
    }, [])
    modem = _modem()
    bearers = list(modem.props[MM + '.Modem']['Bearers']) + [dbus.ObjectPath(path)]
    _set(modem, MM + '.Modem', 'Bearers', dbus.Array(bearers, signature='o'))
    _set(modem, MM + '.Modem', 'State', dbus.Int32(STATE_CONNECTED))
    return dbus.ObjectPath(path)


def _disconnect(self, bearer):
    _fault('Disconnect')
    STATE['journal'].append(f'Disconnect {bearer}')
    modem = _modem()
    bearers = list(modem.props[MM + '.Modem']['Bearers'])
    gone = bearers if bearer == '/' else [b for b in bearers if b == bearer]
    if not gone and bearer != '/':
        raise dbus.exceptions.DBusException('no such bearer', name=MM + '.Error.Core.NotFound')
    for path in gone:
        mockobject.objects[MAIN_OBJ].RemoveObject(path)
    left = [b for b in bearers if b not in gone]
    _set(modem, MM + '.Modem', 'Bearers', dbus.Array(left, signature='o'))
    if not left:
        _set(modem, MM + '.Modem', 'State', dbus.Int32(STATE_REGISTERED))


def _network_time(self):
    _fault('GetNetworkTime')
    return STATE['time']


def _profiles_list(self):
    return dbus.Array(STATE['profiles'], signature='a{sv}')


def _profiles_set(self, props):
    wanted = dict(props)
    pid = int(wanted.get('profile-id', -1))
    STATE['profiles'] = [p for p in STATE['profiles'] if int(p['profile-id']) != pid]
    STATE['profiles'].append(dbus.Dictionary(wanted, signature='sv'))
    return dbus.Dictionary(wanted, signature='sv')


def _managed_objects(self):
    _fault('GetManagedObjects')
    return {dbus.ObjectPath(k): mockobject.objects[k].props
            for k in mockobject.objects if k.startswith(MAIN_OBJ + '/')}


def _remove_all(main):
    for path in [k for k in mockobject.objects if k.startswith(MAIN_OBJ + '/')]:
        main.RemoveObject(path)


def _add_modem(main, params):
    main.AddObject(SIM, MM + '.Sim', {
        'Active': True, 'SimIdentifier': '89014103211118510720', 'Imsi': '310150123456789',
        'OperatorIdentifier': '311480', 'OperatorName': params.get('operator', 'Veltra'),
    }, [])
    main.AddObject(MODEM, MM + '.Modem', {
        'Sim': dbus.ObjectPath(SIM),
        'Bearers': dbus.Array([], signature='o'),
        'Manufacturer': 'Quectel', 'Model': 'EG25-G', 'Revision': 'EG25GGBR07A08M2G',
        'EquipmentIdentifier': '867698041234567', 'DeviceIdentifier': 'f0e1d2',
        'State': dbus.Int32(STATE_REGISTERED),
        'AccessTechnologies': dbus.UInt32(1 << 14),
        'SignalQuality': dbus.Struct((dbus.UInt32(75), True), signature='ub'),
        'OwnNumbers': dbus.Array(['+15551234567'], signature='s'),
    }, [])
    modem = _modem()
    modem.AddProperties(MM + '.Modem.Modem3gpp', {
        'Imei': '867698041234567', 'RegistrationState': dbus.UInt32(int(params.get('registration', 1))),
        'OperatorCode': '311480', 'OperatorName': 'Veltra',
    })
    modem.AddProperties(MM + '.Modem.ModemCdma', {
        'Meid': 'A1000049ABCDEF', 'Esn': '80ABCDEF',
        'Cdma1xRegistrationState': dbus.UInt32(0), 'EvdoRegistrationState': dbus.UInt32(0),
    })
    # Interfaces without properties still show in GetManagedObjects, as ModemManager lists them.
    modem.props[MM + '.Modem.Simple'] = dbus.Dictionary({}, signature='sv')
    modem.AddProperties(MM + '.Modem.Time', {'NetworkTimezone': dbus.Dictionary({'offset': dbus.Int32(0)}, signature='sv')})
    modem.AddMethod(MM + '.Modem.Simple', 'Connect', 'a{sv}', 'o', _connect)
    modem.AddMethod(MM + '.Modem.Simple', 'Disconnect', 'o', '', _disconnect)
    modem.AddMethod(MM + '.Modem.Time', 'GetNetworkTime', '', 's', _network_time)
    if params.get('messaging', True):
        modem.AddProperties(MM + '.Modem.Messaging', {
            'Messages': dbus.Array([], signature='o'),
            'SupportedStorages': dbus.Array([dbus.UInt32(2)], signature='u'),
            'DefaultStorage': dbus.UInt32(2),
        })
    if params.get('profiles', True):
        STATE['profiles'] = [dbus.Dictionary({
            'profile-id': dbus.Int32(1), 'apn': 'vzwinternet', 'ip-type': dbus.UInt32(4),
            'allowed-auth': dbus.UInt32(1), 'user': '', 'password': '', 'profile-name': 'Internet',
        }, signature='sv')]
        modem.AddProperties(MM + '.Modem.Modem3gpp.ProfileManager', {'IndexField': 'profile-id'})
        modem.AddMethod(MM + '.Modem.Modem3gpp.ProfileManager', 'List', '', 'aa{sv}', _profiles_list)
        modem.AddMethod(MM + '.Modem.Modem3gpp.ProfileManager', 'Set', 'a{sv}', 'a{sv}', _profiles_set)


def load(mock, parameters):
    mock.AddMethods(MAIN_IFACE, [('ScanDevices', '', '', ''), ('SetLogging', 's', '', '')])
    mock.AddProperty(MAIN_IFACE, 'Version', '1.20.4')
    mock.AddMethod('org.freedesktop.DBus.ObjectManager', 'GetManagedObjects', '', 'a{oa{sa{sv}}}',
                   _managed_objects)
    Reset(mock, dbus.Dictionary(parameters or {}, signature='sv'))


@dbus.service.method(MOCK_IFACE, in_signature='a{sv}', out_signature='')
def Reset(self, params):
    _remove_all(self)
    STATE.update({'faults': {}, 'journal': [], 'params': dict(params), 'profiles': []})
    if params.get('modem', True):
        _add_modem(self, params)


@dbus.service.method(MOCK_IFACE, in_signature='sb', out_signature='o')
def ReceiveSms(self, text, complete):
    path = f'{MAIN_OBJ}/SMS/{STATE["sms"]}'
    STATE['sms'] += 1
    self.AddObject(path, MM + '.Sms', {
        'State': dbus.UInt32(3 if complete else 2), 'PduType': dbus.UInt32(1),
        'Number': '+15557654321', 'Text': text, 'Storage': dbus.UInt32(2),
        'Timestamp': STATE['time'],
    }, [])
    modem = _modem()
    if MM + '.Modem.Messaging' in modem.props:
        messages = list(modem.props[MM + '.Modem.Messaging']['Messages']) + [dbus.ObjectPath(path)]
        _set(modem, MM + '.Modem.Messaging', 'Messages', dbus.Array(messages, signature='o'))
        modem.EmitSignal(MM + '.Modem.Messaging', 'Added', 'ob', [dbus.ObjectPath(path), True])
    return dbus.ObjectPath(path)


@dbus.service.method(MOCK_IFACE, in_signature='o', out_signature='')
def CompleteSms(self, path):
    mockobject.objects[path].UpdateProperties(MM + '.Sms', {'State': dbus.UInt32(3)})


@dbus.service.method(MOCK_IFACE, in_signature='s', out_signature='')
def ChangeNetworkTime(self, time):
    STATE['time'] = str(time)
    _modem().EmitSignal(MM + '.Modem.Time', 'NetworkTimeChanged', 's', [STATE['time']])


@dbus.service.method(MOCK_IFACE, in_signature='ss', out_signature='')
def Fail(self, method, error):
    STATE['faults'][str(method)] = str(error)


@dbus.service.method(MOCK_IFACE, in_signature='', out_signature='as')
def Journal(self):
    return dbus.Array(STATE['journal'], signature='s')
