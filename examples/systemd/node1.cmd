create
node-1: ipcbase=5000, databuf=1048576, tlogbuf=262144, nlogbuf=262144, sqlbuf=524288, evbuf=65536
