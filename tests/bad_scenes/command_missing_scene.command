run nowhere.json
