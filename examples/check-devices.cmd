check
node-1: ipcbase=5000, databuf=1048576,
        device-0.path=/srv/mox/data/node-1, device-0.size=48,
        device-1.path=/srv/mox/log/node-1, device-1.size=8
node-2: ipcbase=5100, databuf=1048576,
        device-0.path=/srv/mox/data/node-2, device-0.size=48,
        device-1.path=/srv/mox/log/node-2, device-1.size=8
