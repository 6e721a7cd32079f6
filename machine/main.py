from machine import suite

suite.main()
