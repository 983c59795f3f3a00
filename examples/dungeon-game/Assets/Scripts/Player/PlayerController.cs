using UnityEngine;
using Game.Combat;
using Game.Inventory;

namespace Game.Player
{
    // Moves the hero, turns it towards the movement direction and fires the equipped weapon.
    // The weapon comes from the inventory at start and whenever the inventory changes it; the
    // inventory may hold no weapon at all (unarmed levels, a broken weapon that was dropped).
    // Lives on the Player prefab next to PlayerHealth and a CharacterController.
    [RequireComponent(typeof(CharacterController))]
    public class PlayerController : MonoBehaviour
    {
        [SerializeField] private float moveSpeed = 5f;
        [SerializeField] private float turnSpeed = 720f;
        [SerializeField] private PlayerInventory inventory;

        private CharacterController body;
        private PlayerHealth health;
        private Weapon equippedWeapon;
        private Vector3 aimDirection = Vector3.forward;

        private void Awake()
        {
            body = GetComponent<CharacterController>();
            health = GetComponent<PlayerHealth>();
        }

        private void OnEnable()
        {
            inventory.WeaponChanged += OnWeaponChanged;
        }

        private void OnDisable()
        {
            inventory.WeaponChanged -= OnWeaponChanged;
        }

        private void Start()
        {
            equippedWeapon = inventory.EquippedWeapon;
        }

        // Puts the hero back at a checkpoint with full health after the death screen.
        public void Respawn(Transform checkpoint)
        {
            body.enabled = false;
            transform.SetPositionAndRotation(checkpoint.position, checkpoint.rotation);
            body.enabled = true;
            aimDirection = checkpoint.forward;
            health.Heal(int.MaxValue);
        }

        // Reads movement and fire input every frame while the hero is alive.
        // Movement is camera-independent: the level is seen from a fixed top-down angle.

        private void Update()
        {
            if (health.IsDead)
            {
                return;
            }

            Vector3 input = new Vector3(Input.GetAxisRaw("Horizontal"), 0f, Input.GetAxisRaw("Vertical"));
            body.SimpleMove(Vector3.ClampMagnitude(input, 1f) * moveSpeed);

            if (input.sqrMagnitude > 0.01f)
            {
                aimDirection = input.normalized;
            }
            Quaternion target = Quaternion.LookRotation(aimDirection);
            transform.rotation = Quaternion.RotateTowards(transform.rotation, target, turnSpeed * Time.deltaTime);

            if (Input.GetButton("Fire1") && equippedWeapon.CanFire)
            {
                equippedWeapon.Fire(aimDirection);
            }
        }

        // The inventory raises this with null when the hero drops or breaks the weapon.
        private void OnWeaponChanged(Weapon weapon)
        {
            equippedWeapon = weapon;
        }
    }
}
