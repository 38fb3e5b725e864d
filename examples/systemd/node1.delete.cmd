delete
node-1: ipcbase=5000
