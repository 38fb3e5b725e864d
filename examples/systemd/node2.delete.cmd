delete
node-2: ipcbase=5100
