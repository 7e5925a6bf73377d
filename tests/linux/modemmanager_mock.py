'''ModemManager stand-in for python3-dbusmock (run with --template on this file): one modem with
its SIM; Simple.Connect makes a bearer, Disconnect removes it. The test controls are the Mock
interface's methods below (Reset's parameters are at Reset).'''

import dbus

from dbusmock import MOCK_IFACE, mockobject

BUS_NAME = 'org.freedesktop.ModemManager1'
MAIN_OBJ = '/org/freedesktop/ModemManager1'
MAIN_IFACE = 'org.freedesktop.ModemManager1'
SYSTEM_BUS = True
IS_OBJECT_MANAGER = True

MM = MAIN_IFACE
MODEM = MAIN_OBJ + '/Modem/0'
SIM = MAIN_OBJ + '/SIM/0'
REGISTERED, CONNECTED = dbus.Int32(8), dbus.Int32(11)

STATE = {'faults': {}, 'journal': [], 'bearers': 0, 'sms': 0, 'time': '2026-03-01T12:00:00+00:00',
         'params': {}, 'profiles': []}


def _fault(name):
    error = STATE['faults'].pop(name, None)
    if error:
        raise dbus.exceptions.DBusException(f'{name} failed', name=error)


def _modem():
    return mockobject.objects[MODEM]


def _set_bearers(bearers):
    _modem().UpdateProperties(MM + '.Modem', {'Bearers': dbus.Array(bearers, signature='o'),
                                              'State': CONNECTED if bearers else REGISTERED})


def _connect(self, props):
    _fault('Connect')
    apn = str(props.get('apn', ''))
    STATE['journal'].append(f'Connect apn={apn} ip-type={int(props.get("ip-type", 0))}')
    path = f'{MAIN_OBJ}/Bearer/{STATE["bearers"]}'
    STATE['bearers'] += 1
    ip4 = {'method': dbus.UInt32(2), 'address': '10.64.0.2', 'dns1': '192.0.2.53', 'dns2': '192.0.2.54'}
    mockobject.objects[MAIN_OBJ].AddObject(path, MM + '.Bearer', {
        'Interface': STATE['params'].get('interface', 'lo'), 'Connected': True,
        'Ip4Config': dbus.Dictionary(ip4, signature='sv'), 'Ip6Config': dbus.Dictionary({}, signature='sv')}, [])
    _set_bearers(list(_modem().props[MM + '.Modem']['Bearers']) + [dbus.ObjectPath(path)])
    return dbus.ObjectPath(path)


def _disconnect(self, bearer):
    STATE['journal'].append(f'Disconnect {bearer}')
    bearers = list(_modem().props[MM + '.Modem']['Bearers'])
    gone = bearers if bearer == '/' else [b for b in bearers if b == bearer]
    if not gone and bearer != '/':
        raise dbus.exceptions.DBusException('no such bearer', name=MM + '.Error.Core.NotFound')
    for path in gone:
        mockobject.objects[MAIN_OBJ].RemoveObject(path)
    _set_bearers([b for b in bearers if b not in gone])


def _network_time(self):
    _fault('GetNetworkTime')
    return STATE['time']


def _profiles_set(self, props):
    wanted = dbus.Dictionary(props, signature='sv')
    STATE['profiles'] = [p for p in STATE['profiles'] if p['profile-id'] != wanted.get('profile-id')]
    STATE['profiles'].append(wanted)
    return wanted


def _managed_objects(self):
    return {dbus.ObjectPath(k): o.props for k, o in mockobject.objects.items() if k.startswith(MAIN_OBJ + '/')}


def _add_modem(main, params):
    main.AddObject(SIM, MM + '.Sim', {'Imsi': '310150123456789', 'OperatorName': params.get('operator', 'Veltra')},
                   [])
    main.AddObject(MODEM, MM + '.Modem', {
        'Sim': dbus.ObjectPath(SIM), 'Bearers': dbus.Array([], signature='o'), 'Model': 'EG25-G',
        'Revision': 'EG25GGBR07A08M2G', 'EquipmentIdentifier': '867698041234567', 'State': REGISTERED,
        'AccessTechnologies': dbus.UInt32(1 << 14),  # LTE
        'SignalQuality': dbus.Struct((dbus.UInt32(75), True), signature='ub'),
        'OwnNumbers': dbus.Array(['+15551234567'], signature='s')}, [])
    modem = _modem()
    modem.AddProperties(MM + '.Modem.Modem3gpp', {
        'Imei': '867698041234567', 'RegistrationState': dbus.UInt32(int(params.get('registration', 1))),
        'OperatorName': 'Veltra'})
    modem.AddProperties(MM + '.Modem.ModemCdma', {
        'Meid': 'A1000049ABCDEF', 'Esn': '80ABCDEF',
        'Cdma1xRegistrationState': dbus.UInt32(0), 'EvdoRegistrationState': dbus.UInt32(0)})
    # Interfaces without properties still show in GetManagedObjects, as ModemManager lists them.
    for iface in ('Simple', 'Time'):
        modem.props[f'{MM}.Modem.{iface}'] = dbus.Dictionary({}, signature='sv')
    modem.AddMethods(MM + '.Modem.Simple', [('Connect', 'a{sv}', 'o', _connect),
                                            ('Disconnect', 'o', '', _disconnect)])
    modem.AddMethod(MM + '.Modem.Time', 'GetNetworkTime', '', 's', _network_time)
    modem.AddProperties(MM + '.Modem.Messaging', {'Messages': dbus.Array([], signature='o')})
    if params.get('profiles', True):
        STATE['profiles'] = [dbus.Dictionary({
            'profile-id': dbus.Int32(1), 'apn': 'vzwinternet', 'ip-type': dbus.UInt32(4),
            'allowed-auth': dbus.UInt32(1), 'user': '', 'password': '', 'profile-name': 'Internet'},
            signature='sv')]
        manager = MM + '.Modem.Modem3gpp.ProfileManager'
        modem.props[manager] = dbus.Dictionary({}, signature='sv')
        modem.AddMethods(manager, [('List', '', 'aa{sv}', lambda self: dbus.Array(STATE['profiles'], signature='a{sv}')),
                                   ('Set', 'a{sv}', 'a{sv}', _profiles_set)])


def load(mock, parameters):
    mock.AddMethod('org.freedesktop.DBus.ObjectManager', 'GetManagedObjects', '', 'a{oa{sa{sv}}}',
                   _managed_objects)
    Reset(mock, dbus.Dictionary(parameters or {}, signature='sv'))


@dbus.service.method(MOCK_IFACE, in_signature='a{sv}', out_signature='')
def Reset(self, params):
    # "profiles" (a profile manager), "modem" (false: none): b; "interface" (the bearers'),
    # "registration" (3GPP state), "operator" (the SIM's): s
    for path in [k for k in mockobject.objects if k.startswith(MAIN_OBJ + '/')]:
        self.RemoveObject(path)
    STATE.update({'faults': {}, 'journal': [], 'params': dict(params), 'profiles': []})
    if params.get('modem', True):
        _add_modem(self, params)


# An SMS arrives; with complete false it is still arriving until CompleteSms.
@dbus.service.method(MOCK_IFACE, in_signature='sb', out_signature='o')
def ReceiveSms(self, text, complete):
    path = dbus.ObjectPath(f'{MAIN_OBJ}/SMS/{STATE["sms"]}')
    STATE['sms'] += 1
    self.AddObject(path, MM + '.Sms', {'State': dbus.UInt32(3 if complete else 2), 'Text': text}, [])
    messages = list(_modem().props[MM + '.Modem.Messaging']['Messages'])
    _modem().UpdateProperties(MM + '.Modem.Messaging', {'Messages': dbus.Array(messages + [path], signature='o')})
    _modem().EmitSignal(MM + '.Modem.Messaging', 'Added', 'ob', [path, True])
    return path


@dbus.service.method(MOCK_IFACE, in_signature='o', out_signature='')
def CompleteSms(self, path):
    mockobject.objects[path].UpdateProperties(MM + '.Sms', {'State': dbus.UInt32(3)})


@dbus.service.method(MOCK_IFACE, in_signature='s', out_signature='')
def ChangeNetworkTime(self, time):
    STATE['time'] = str(time)
    _modem().EmitSignal(MM + '.Modem.Time', 'NetworkTimeChanged', 's', [STATE['time']])


# The next call of a method fails with that D-Bus error name.
@dbus.service.method(MOCK_IFACE, in_signature='ss', out_signature='')
def Fail(self, method, error):
    STATE['faults'][str(method)] = str(error)


@dbus.service.method(MOCK_IFACE, in_signature='', out_signature='as')
def Journal(self):
    return dbus.Array(STATE['journal'], signature='s')
