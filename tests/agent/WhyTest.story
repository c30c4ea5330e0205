{"from":"controller","op":"enabled","value":true}
{"from":"evpn","op":"capability","value":true}
{"from":"controller","op":"mac","vni":1,"mac":"02:00:00:00:00:01","vtep":"10.0.0.1","seq":3}
{"from":"evpn","op":"mac","vni":1,"mac":"02:00:00:00:00:01","vtep":"10.0.0.9","seq":2}
{"from":"evpn","op":"mac","vni":1,"mac":"02:00:00:00:00:02","vtep":"10.0.0.9"}
{"from":"controller","op":"mac","vni":1,"mac":"02:00:00:00:00:03","vtep":"10.0.0.1"}
{"from":"evpn","op":"mac","vni":1,"mac":"02:00:00:00:00:03","vtep":"10.0.0.9","seq":1}
{"from":"controller","op":"multipath","vni":1,"mac":"02:00:00:00:00:04","vteps":["10.0.0.1"]}
{"from":"controller","op":"flood","vni":1,"vtep":"10.0.0.1"}
{"from":"controller","op":"flood","vni":1,"vtep":"10.0.0.2","on":false}
{"from":"controller","op":"flood","vni":1,"vtep":"10.0.0.3","mac":"02:00:00:00:00:01"}
{"from":"evpn","op":"flood","vni":1,"vtep":"10.0.0.9"}
{"from":"controller","op":"flood","vni":1,"vtep":"10.0.0.8","on":false}
{"from":"evpn","op":"flood","vni":1,"vtep":"10.0.0.8"}
{"from":"evpn","op":"mac","vni":2,"mac":"02:00:00:00:00:01","vtep":"10.0.0.9"}
{"from":"controller","op":"mac","vni":1,"mac":"02:00:00:00:00:06","vtep":"0.0.0.0"}
{"from":"controller","op":"mac","vni":3,"mac":"02:00:00:00:00:06","vtep":"224.0.0.1"}
{"from":"evpn","op":"mac","vni":4,"mac":"02:00:00:00:00:06","vtep":"0.0.0.0"}
{"from":"controller","op":"mac","vni":1,"mac":"02:00:00:00:00:07","vtep":"10.0.0.1"}
{"from":"evpn","op":"mac","vni":1,"mac":"02:00:00:00:00:07","vtep":"10.9.0.1","seq":1}
{"from":"controller","op":"mac","vni":1,"mac":"02:00:00:00:00:07","vtep":"10.0.0.1","seq":2}
{"from":"controller","op":"mac","vni":1,"mac":"02:00:00:00:00:05","vtep":"0.0.0.0"}
{"from":"controller","op":"mac-del","vni":1,"mac":"02:00:00:00:00:05"}
{"from":"controller","op":"multipath","vni":1,"mac":"00:00:00:00:00:00","vteps":["10.0.0.5"]}
{"from":"controller","op":"multipath","vni":8,"mac":"02:00:00:00:00:08","vteps":["10.0.0.1"]}
{"from":"controller","op":"vni","vni":9}
? 02:00:00:00:00:01 1        exported       imported
? 02:00:00:00:00:02 1        evpn-supplied  imported
? 02:00:00:00:00:03 1        evpn-newer     imported
? 02:00:00:00:00:04 1        multipath-only not-learned
? 02:00:00:00:00:05 1        not-known      not-learned
? 01:00:00:00:00:05 1        refused        not-learned
? 02:00:00:00:00:06 1        refused        not-learned
? 02:00:00:00:00:06 3        refused        not-learned
? 02:00:00:00:00:01 2        not-served     imported
? 00:00:00:00:00:00 0        not-served     default-row
? 10.0.0.1 1                 exported       not-learned
? 10.0.0.2 1                 entry-off      not-learned
? 10.0.0.3 1                 not-all-bum    not-learned
? 10.0.0.5 1                 multipath-only not-learned
? 10.0.0.4 1                 not-known      not-learned
? 224.0.0.1 1                refused        not-learned
? 10.0.0.9 1                 evpn-supplied  imported
? 10.0.0.8 1                 evpn-switched-on imported
? 10.0.0.1 2                 not-served     not-learned
