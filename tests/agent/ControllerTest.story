# What switches list at first was not newly heard.
leaf1 has 10.0.0.1 -> 10.0.0.1/0
leaf2 has 10.0.0.2 -> 10.0.0.1/0
leaf1 whole -> 10.0.0.1/0
leaf2 whole -> 10.0.0.1/0
leaf2 lost -> 10.0.0.1/0
leaf2 has 10.0.0.2 -> 10.0.0.2/1
# The same again is no news.
leaf1 has 10.0.0.1 -> 10.0.0.2/1
# The switch that still lists the MAC has it again.
leaf2 lost -> 10.0.0.1/2
evpn has 10.9.0.1 7 -> 10.9.0.1/7
# What is newly heard gets a number above EVPN's, or a feed's.
leaf2 has 10.0.0.2 -> 10.0.0.2/8
feed has 10.9.0.2 20 -> 10.9.0.2/20
leaf2 lost -> 10.9.0.2/20
leaf2 has 10.0.0.2 -> 10.0.0.2/21
# There is no number above the last one.
feed has 10.9.0.2 4294967295 -> 10.9.0.2/4294967295
leaf2 lost -> 10.9.0.2/4294967295
leaf2 has 10.0.0.2 -> 10.0.0.2/4294967295
leaf1 lost -> 10.0.0.2/4294967295
leaf2 lost -> 10.9.0.2/4294967295
feed lost -> 10.9.0.1/7
evpn goes -> none
leaf1 has 10.0.0.1 -> 10.0.0.1/0

# A switch that lists its state again takes the MAC from nobody.
leaf1 has 10.0.0.1 -> 10.0.0.1/0
leaf1 whole -> 10.0.0.1/0
leaf2 whole -> 10.0.0.1/0
leaf2 has 10.0.0.2 -> 10.0.0.2/1
leaf1 begins -> 10.0.0.2/1
leaf1 has 10.0.0.1 -> 10.0.0.2/1
leaf1 whole -> 10.0.0.2/1
# What it does not repeat goes when its state is whole.
leaf2 begins -> 10.0.0.2/1
leaf2 whole -> 10.0.0.1/2
leaf1 withdrawn -> the VNI is not served

# What an earlier run left stays with its number: a feed may tell what was before, and a list does not say when
# its entries were heard.
earlier-run has 10.0.0.2 5 -> 10.0.0.2/5
earlier-run floods 10.9.0.1 -> 10.0.0.2/5, flooded
earlier-run serves -> 10.0.0.2/5, flooded
feed has 10.0.0.1 4 -> 10.0.0.2/5, flooded
feed leaves -> 10.0.0.2/5, flooded
leaf1 has 10.0.0.1 -> 10.0.0.2/5, flooded
leaf2 has 10.0.0.2 -> 10.0.0.2/5, flooded
earlier-run goes -> 10.0.0.2/5
leaf2 withdrawn -> 10.0.0.1/6
# Of equal numbers the lowest VTEP counts.
feed has 10.9.0.1 6 -> 10.0.0.1/6
leaf1 leaves -> 10.9.0.1/6
feed leaves -> the VNI is not served

# Feeds are merged by number; what a feed that begins again repeats late is kept.
feed has 10.0.0.1 3 -> 10.0.0.1/3
feed2 has 10.0.0.2 3 -> 10.0.0.1/3
feed2 has 10.0.0.2 4 -> 10.0.0.2/4
feed2 begins -> 10.0.0.2/4
feed2 has 10.0.0.1 1 -> 10.0.0.2/4
feed2 lost -> 10.0.0.2/4
feed2 has 10.9.0.1 4 -> 10.9.0.1/4
feed2 begins -> 10.9.0.1/4
feed2 whole -> 10.0.0.1/3

# A frozen MAC of a switch is left to the other site; of equals the lowest VTEP has it, at both sites.
leaf1 has 10.0.0.5 -> 10.0.0.5/0
leaf1 whole -> 10.0.0.5/0
mac freezes -> 10.0.0.5/0
evpn has 10.0.0.9 0 -> 10.0.0.5/0
evpn has 10.0.0.1 0 -> 10.0.0.1/0
leaf1 lost -> 10.0.0.1/0
leaf1 has 10.0.0.5 -> 10.0.0.1/0
mac thaws -> 10.0.0.5/0
mac freezes -> 10.0.0.1/0
# An entry that has a number of its own is not held back.
feed has 10.0.0.5 0 -> 10.0.0.5/0
