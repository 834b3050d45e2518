// placeholder until the tables land
